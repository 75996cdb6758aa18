// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/KMVDriveKeys.h>
#include <gtest/gtest.h>

#include <chrono>
#include <limits>
#include <memory>
#include <string>

#include "kmvdrive/DriveJSON.h"
#include "kmvdrive/EventText.h"

namespace kmv::tool {
namespace {

JSON printedAndRead(const JSON& document) {
  const std::string line = jsonLine(document);
  EXPECT_EQ(line.find('\n'), line.size() - 1) << "one document a line";
  for (const char c : line)
    EXPECT_TRUE((c >= 0x20 && c < 0x7f) || c == '\n') << "a byte that a terminal might obey";
  return JSON::parse(line);
}

TEST(DriveJSON, ValuesOfEveryKindBecomeWhatJSONHasForThem) {
  struct Wrapper : Object {
    std::string description() const override { return "a wrapper"; }
  };
  const UUID uuid = *UUID::fromString("01234567-89ab-cdef-0123-456789abcdef");
  const Dictionary drive{{"boolean", true},
                         {"integer", -7},
                         {"real", 0.5},
                         {"no number", std::numeric_limits<double>::quiet_NaN()},
                         {"uuid", uuid},
                         {"url", URL::fileURLWithPath("/a b", true)},
                         {"date", Date{0}},
                         {"later", Date{86400.25}},
                         {"before 1970", Date{-978307200.5}},
                         {"endless", Date{std::numeric_limits<double>::infinity()}},
                         {"data", Data{std::byte{0xff}, std::byte{0}, std::byte{0x10}, std::byte{0x83}}},
                         {"nested", Array{Value(Dictionary{{"deep", 1}}), Value("text")}},
                         {"object", std::make_shared<Wrapper>()}};
  const JSON read = printedAndRead(jsonOf(Value(drive)));
  EXPECT_EQ(read["boolean"], true);
  EXPECT_TRUE(read["integer"].is_number_integer());
  EXPECT_EQ(read["integer"], -7);
  EXPECT_EQ(read["real"], 0.5);
  EXPECT_TRUE(read["no number"].is_null());
  EXPECT_EQ(read["uuid"], "01234567-89AB-CDEF-0123-456789ABCDEF");
  EXPECT_EQ(read["url"], "file:///a%20b/");
  EXPECT_EQ(read["date"], "2001-01-01T00:00:00Z");
  EXPECT_EQ(read["later"], "2001-01-02T00:00:00.250Z");
  EXPECT_EQ(read["before 1970"], "1969-12-31T23:59:59.500Z");
  EXPECT_TRUE(read["endless"].is_string());
  EXPECT_EQ(read["data"], "/wAQgw==");
  EXPECT_EQ(read["nested"], JSON::parse(R"([{"deep":1},"text"])"));
  EXPECT_EQ(read["object"], "a wrapper");
}

TEST(DriveJSON, ANameThatIsNoTextLosesItsBytesInPathButNotInURL) {
  const std::string path = "/media/a\xff\xc3/\x1b[2J\x7f\n";
  const JSON drive = printedAndRead(jsonOfDrive({{kDiskURLKey.data(), URL::fileURLWithPath(path, true)},
                                                 {kDiskVolumeName.data(), "\xed\xa0\x80"},
                                                 {"key\xfe", 1}}));
  EXPECT_EQ(drive["path"], "/media/a\uFFFD\uFFFD/\x1b[2J\x7f\n");
  const auto url = URL::fromString(drive["url"].get<std::string>());
  EXPECT_EQ(url->path(), path);
  EXPECT_TRUE(drive["description"].contains("key\uFFFD"));
}

TEST(DriveJSON, KnownFactsHaveNamesAndAbsentOnesAreLeftOut) {
  const JSON bare = printedAndRead(jsonOfDrive({{"DAVolumeKind", "ext4"}, {"DAVolumePath", "no URL"}}));
  EXPECT_EQ(bare,
            JSON::parse(R"({"kind":"ext4","description":{"DAVolumeKind":"ext4","DAVolumePath":"no URL"}})"));

  const JSON full = printedAndRead(jsonOfDrive({{"DAVolumePath", URL::fileURLWithPath("/", true)},
                                                {"driveUUIDKey", "an identity"},
                                                {"DAMediaBSDName", "sda1"},
                                                {"DAMediaRemovableActual", false},
                                                {"DAVolumeNetwork", 1},
                                                {"diskMountedPriorToApplicationInstance", true},
                                                {"DAAppearanceTime", 12.5}}));
  EXPECT_EQ(full["url"], "file:///");
  EXPECT_EQ(full["path"], "/");
  EXPECT_EQ(full["uuid"], "an identity");
  EXPECT_EQ(full["bsdName"], "sda1");
  EXPECT_EQ(full["removable"], false);
  EXPECT_EQ(full["network"], true) << "any number has a truth";
  EXPECT_EQ(full["mountedBeforeStart"], true);
  EXPECT_EQ(full["appeared"], 12.5);
}

TEST(DriveJSON, AnEventTellsItsTimeWithItsFraction) {
  const EventTime time{std::chrono::milliseconds(1700000000125)};
  const JSON event = JSON::parse(eventAsJSON(DriveEvent::removed, time, {{"DAVolumeKind", "vfat"}}));
  EXPECT_EQ(event["event"], "removed");
  EXPECT_EQ(event["time"], 1700000000.125);
  EXPECT_EQ(event["drive"]["kind"], "vfat");
}

}  // namespace
}  // namespace kmv::tool
