// SPDX-License-Identifier: MIT
// What scripts and people are told of drives: byte for byte, since scripts compare.
#include "kmvdrive/DriveFacts.h"
#include "kmvdrive/DriveLedger.h"
#include "kmvdrive/EventText.h"
#include "support/Testing.h"

namespace kmv::tool {
namespace {

using ::testing::ElementsAre;

const UUID kVolume = *UUID::fromString("01234567-89ab-cdef-0123-456789abcdef");
const EventTime kTime{std::chrono::milliseconds(1700000000125)};

/// A drive of which everything is known.
Dictionary fullDrive() {
  return {{"DAVolumePath", URL::fileURLWithPath("/media/new\n", true)},
          {"driveOldURLKey", URL::fileURLWithPath("/media/old", true)},
          {"DAVolumeName", "new"},
          {"DAVolumeKind", "exfat"},
          {"DAVolumeUUID", kVolume},
          {"driveUUIDKey", "an identity"},
          {"DAMediaBSDName", "sda1"},
          {"DAMediaSize", UINT64_MAX},
          {"DAMediaRemovableActual", true},
          {"DAMediaEjectable", true},
          {"DAVolumeNetwork", 1},  // any number has a truth
          {"diskMountedPriorToApplicationInstance", false},
          {"DAAppearanceTime", 12.5}};
}

TEST(ValueJSON, ValuesOfEveryKindBecomeWhatJSONHasForThem) {
  struct Wrapper : Object {
    std::string description() const override { return "a wrapper"; }
  };
  const Array values{true,
                     -7,
                     UINT64_MAX,
                     0.5,
                     std::numeric_limits<double>::quiet_NaN(),
                     kVolume,
                     URL::fileURLWithPath("/a b", true),
                     Date{0},
                     Date{86400.25},
                     Date{-978307200.5},
                     Data{std::byte{0xff}, std::byte{0}, std::byte{0x10}, std::byte{0x83}},
                     Data{std::byte{1}, std::byte{2}},
                     Value(Dictionary{{"deep", Array{"text"}}}),
                     std::make_shared<Wrapper>()};
  EXPECT_EQ(
      jsonLine(jsonOf(Value(values))),
      R"([true,-7,18446744073709551615,0.5,null,"01234567-89AB-CDEF-0123-456789ABCDEF","file:///a%20b/",)"
      R"("2001-01-01T00:00:00Z","2001-01-02T00:00:00.250Z","1969-12-31T23:59:59.500Z",)"
      R"("/wAQgw==","AQI=",{"deep":["text"]},"a wrapper"])"
      "\n");
  EXPECT_TRUE(jsonOf(Value(Date{std::numeric_limits<double>::infinity()})).is_string());
}

TEST(DriveFacts, JSONHasNamesForKnownFactsAndLeavesAbsentOnesOut) {
  JSON full = jsonOfDrive(fullDrive());
  EXPECT_EQ(full["description"].size(), fullDrive().size());
  full.erase("description");
  EXPECT_EQ(jsonLine(full),
            R"({"schema":1,"url":"file:///media/new%0A/","path":"/media/new\n","name":"new","kind":"exfat",)"
            R"("uuid":"an identity","bsdName":"sda1","removable":true,"mountedBeforeStart":false,)"
            R"("network":true,"appeared":12.5,"size":18446744073709551615})"
            "\n");
  EXPECT_EQ(jsonLine(jsonOfDrive({{"DAVolumeKind", "ext4"}, {"DAVolumePath", "no URL"}})),
            R"({"schema":1,"kind":"ext4","description":{"DAVolumeKind":"ext4","DAVolumePath":"no URL"}})"
            "\n");
}

TEST(DriveFacts, ANameThatIsNotUTF8LosesItsBytesInPathButNotInURL) {
  const std::string path = "/media/a\xff\xc3/\x1b[2J\x7f\n";
  const std::string line = jsonLine(jsonOfDrive({{"DAVolumePath", URL::fileURLWithPath(path, true)},
                                                 {"DAVolumeName", "\xed\xa0\x80"},
                                                 {"key\xfe", 1}}));
  for (const char c : line.substr(0, line.size() - 1)) EXPECT_TRUE(c >= 0x20 && c < 0x7f) << line;
  const JSON drive = JSON::parse(line);
  EXPECT_EQ(drive["path"], "/media/a\uFFFD\uFFFD/\x1b[2J\x7f\n");
  EXPECT_EQ(URL::fromString(drive["url"].get<std::string>())->path(), path);
  EXPECT_TRUE(drive["description"].contains("key\uFFFD"));
}

TEST(DriveFacts, ATableHasAColumnForEachFactThatPeopleCompareAndDropsTheLeastWhereItIsNarrow) {
  ::setenv("LC_ALL", "C", 1);
  Dictionary full = fullDrive();
  setSpace(full, {2'000'000'000, 1'200'000'000, 1'000'000'000, false});
  full.set(key::kDeviceProtocol, "USB");
  full.set(key::kDeviceModel, "Cruzer");
  const Style plain(false);
  EXPECT_EQ(tableOf({}, {full}).text(plain),
            "DEVICE  NAME  KIND    SIZE    USED    FREE              USE  MOUNT POINT     BUS  MODEL   FLAGS"
            "                        UUID\n"
            "sda1    new   exfat  18 EB  800 MB  1.0 GB  ####------  45%  /media/new\\x0a  USB  Cruzer  "
            "removable,ejectable,network  an identity\n");
  EXPECT_EQ(tableOf({.showsExactBytes = true, .columns = {"free", "mountpoint"}}, {full}).text(plain),
            "      FREE  MOUNT POINT\n1000000000  /media/new\\x0a\n");
  EXPECT_EQ(tableOf({}, {full}).text(plain, 43),
            "DEVICE  NAME   SIZE    FREE  MOUNT POINT\nsda1    new   18 EB  1.0 GB  /media/new\\x0a\n");
  EXPECT_EQ(tableOf({}, {full}).text(plain, 6), "MOUNT \n/media\n");
  const Dictionary unmounted{{"DAMediaBSDName", "sdb"}, {"DAVolumeUUID", kVolume}, {"DAMediaSize", -1}};
  EXPECT_EQ(tableOf({.isOfMounted = false, .columns = {"device", "size", "uuid"}}, {unmounted}).text(plain),
            "DEVICE  SIZE  UUID\nsdb        -  " + kVolume.string() + "\n");
}

std::string shown(DriveEvent event, const Dictionary& drive, bool coloured = false) {
  return eventAsText(event, kTime, drive, Style(coloured)).substr(sizeof "hh:mm:ss" - 1);
}

TEST(EventText, AnEventIsOneLine) {
  EXPECT_EQ(shown(DriveEvent::changed, fullDrive()),
            "  changed  /media/new\\x0a (was /media/old)  \"new\"  exfat, 18 EB, sda1, "
            "removable,ejectable,network\n");
  const Dictionary card{{"DAVolumePath", URL::fileURLWithPath("/card", true)}, {"DAVolumeKind", "vfat"}};
  EXPECT_EQ(shown(DriveEvent::present, card, true), "  present  /card  vfat\n");
  EXPECT_EQ(shown(DriveEvent::added, card, true), "  \x1b[32madded\x1b[0m    /card  vfat\n");
  EXPECT_EQ(shown(DriveEvent::removed, card, true), "  \x1b[31mremoved\x1b[0m  /card  vfat\n");
  EXPECT_EQ(
      eventAsJSON(DriveEvent::removed, kTime, {{"DAVolumeKind", "vfat"}}),
      R"({"schema":1,"event":"removed","time":1700000000.125,"drive":{"kind":"vfat","description":{"DAVolumeKind":"vfat"}}})"
      "\n");
  const CodexStatus codex{"/card", true, 1500};
  EXPECT_EQ(codexAsText(kTime, codex, Style(false)).substr(8), "  codex    /card  built, 1.5 kB\n");
  EXPECT_EQ(codexAsJSON(kTime, codex),
            R"({"schema":1,"event":"codex","time":1700000000.125,"path":"/card","state":"built","size":1500})"
            "\n");
}

TEST(EventText, ARefusalIsASentenceWithItsNumbers) {
  const Dictionary refusal{
      {"DAVolumePath", URL::fileURLWithPath("/card", true)}, {"status", dissent::kBusy}, {"pid", 4711}};
  EXPECT_EQ(shown(DriveEvent::ejectionRejected, refusal),
            "  ejectionRejected  /card  something on it is in use (status 0xF8DA0002, process 4711)\n");
  EXPECT_EQ(
      eventAsJSON(DriveEvent::ejectionRejected, kTime, refusal),
      R"({"schema":1,"event":"ejectionRejected","time":1700000000.125,"url":"file:///card/","path":"/card","status":-119930878,"pid":4711})"
      "\n");
  const std::pair<int, const char*> others[] = {
      {12, "the system refused without a reason that is known here (status 12)"},
      {49168, "something on it is in use (status 49168)"},  // errno in the wrapping of macOS
      {49182, "it is read-only (status 49182)"},
      {0xC000 + ENOSPC, "its file system says: No space left on device (status 49180)"}};
  for (const auto& [status, text] : others) EXPECT_EQ(refusalText({{"status", status}, {"pid", 0}}), text);
}

using testing::ElementsAre;

class Ledger : public testing::Test {
 protected:
  static DriveLedger::Drive drive(const std::string& path, double appeared) {
    return std::make_shared<DriveDictionary>(
        Dictionary{{"DAVolumePath", URL::fileURLWithPath(path, true)}, {"DAAppearanceTime", appeared}});
  }
  static void rename(const DriveLedger::Drive& renamed, const std::string& path) {
    renamed->set("DAVolumePath", URL::fileURLWithPath(path, true));
  }

  std::vector<std::string> shown;
  DriveLedger ledger{[this](DriveEvent event, const Dictionary& contents) {
    constexpr const char* kNames[] = {"present ", "added ", "removed ", "changed "};
    shown.push_back(kNames[static_cast<int>(event)] + contents.url("DAVolumePath")->path());
  }};
};

TEST_F(Ledger, WhatIsThereAtTheStartIsPresentAndWhatComesLaterIsAdded) {
  const auto root = drive("/", 1), stick = drive("/media/stick", 2), gone = drive("/media/gone", 3);
  for (const auto& early : {gone, root}) ledger.announced(early);
  ledger.removed(gone->snapshot());
  rename(root, "/new");
  ledger.changed(root, root->snapshot());
  EXPECT_TRUE(shown.empty()) << "nothing before the registry has settled";
  ledger.settle();
  for (const auto& late : {stick, root}) ledger.announced(late);
  ledger.removed(gone->snapshot());
  ledger.removed(root->snapshot());
  const auto silent = drive("/media/never announced", 3);
  ledger.changed(silent, silent->snapshot());
  ledger.removed(silent->snapshot());
  EXPECT_THAT(shown, ElementsAre("present /new", "added /media/stick", "removed /new"));
}

TEST_F(Ledger, ALateNewsOfARenameDoesNotMixUpTwoDrives) {
  ledger.settle();
  const auto first = drive("/media/a", 1), second = drive("/media/b", 2);
  // The registry has gone on: the second drive came and left, and then the first took its path.
  rename(first, "/media/b");
  ledger.announced(first);
  ledger.announced(second);
  ledger.removed(second->snapshot());
  ledger.changed(first, first->snapshot());
  ledger.removed(first->snapshot());
  EXPECT_THAT(shown, ElementsAre("added /media/b", "added /media/b", "removed /media/b", "changed /media/b",
                                 "removed /media/b"));
}

}  // namespace
}  // namespace kmv::tool
