// SPDX-License-Identifier: MIT
#include "support/Registry.h"

namespace kmv::simulation {
namespace {

using Gatherer = KMVExtendedAttributeGatherer;
constexpr char kTool[] = "/usr/bin/xattr";

class Attributes : public ::testing::Test {
 protected:
  Attributes() { machine.createItem(file); }

  std::int64_t startBlock(const std::string& value) {
    machine.setAttribute(file, "ltfs.startblock", value);
    return Gatherer::findLocationOfLTFSStartBlockAtLocation(file);
  }
  static Date dateOf(double secondsSince1970) { return {secondsSince1970 - Date::kReferenceDate}; }

  SimulatedPlatform& machine = SimulatedPlatform::install();
  const std::string file = "/tape/clip.mov";
};

TEST_F(Attributes, OfLTFSHaveSixNames) {
  std::string names;
  for (unsigned attribute = 0; attribute < 7; ++attribute)
    names += Gatherer::ltfsAttributeNameForAttribute(attribute).value_or("none") + " ";
  EXPECT_EQ(
      names,
      "ltfs.fileUID ltfs.partition ltfs.volumeUUID ltfs.volumeSerial ltfs.volumeName ltfs.startblock none ");
}

TEST_F(Attributes, APositionIsTheNumberThatTheValueBeginsWith) {
  EXPECT_EQ(Gatherer::findLocationOfLTFSStartBlockAtLocation(file), -1);
  EXPECT_EQ(Gatherer::findLocationOfLTFSStartBlockAtLocation("/nowhere"), -1);
  std::vector<std::int64_t> numbers;
  for (const char* text : {"1234", "  42x", "-7", "+5", "- 8", "text", "", "++1", "0x10", "1.9", "\xff",
                           "\u2003"
                           "3",
                           "9223372036854775807", "99999999999999999999", "-99999999999999999999"})
    numbers.push_back(startBlock(text));
  EXPECT_EQ(numbers, (std::vector<std::int64_t>{1234, 42, -7, 5, -8, 0, 0, 0, 0, 1, 0, 3, INT64_MAX,
                                                INT64_MAX, INT64_MIN}));
  EXPECT_EQ(startBlock("1" + std::string(254, ' ')), 1);
  EXPECT_EQ(startBlock("1" + std::string(255, ' ')), 0) << "longer than any position";
}

TEST_F(Attributes, AreReadThroughTheToolWithoutWhiteSpaceAtTheirEnds) {
  machine.setAttribute(file, "ltfs.volumeName", " \u00a0My Tape\t\n");
  EXPECT_EQ(Gatherer::findValueOfExtendedAttribute(4, file), "My Tape");
  EXPECT_EQ(Gatherer::findValueOfExtendedAttribute(3, file), "") << "a missing one is empty, not absent";
  EXPECT_EQ(Gatherer::findValueOfExtendedAttribute(6, file), std::nullopt);
  machine.setAttribute(file, "a", "1");
  EXPECT_EQ(Gatherer::findValueOfExtendedAttributeWithTitle(std::nullopt, file),
            "a: 1\nltfs.volumeName:  \u00a0My Tape");
  EXPECT_EQ(Gatherer::findValueOfExtendedAttributeWithTitle("a", "/nowhere"), "");
  std::vector<std::string> words;
  machine.installProgram(kTool, [&](const auto& arguments) {
    words = arguments;
    return SimulatedRun{"\xff", {}, 0};
  });
  EXPECT_EQ(Gatherer::findValueOfExtendedAttributeWithTitle("-l", "-x"), std::nullopt) << "no text";
  EXPECT_EQ(words, (Lines{"-p", "-l", "-x"}));
  machine.removeProgram(kTool);
  EXPECT_EQ(Gatherer::findValueOfExtendedAttribute(4, file), std::nullopt);
}

TEST_F(Attributes, AreWrittenBySystemCallUpToTheFirstNUL) {
  std::optional<Exception> exception;
  EXPECT_TRUE(Gatherer::setValueForLTFSExtendedAttributeAtLocation(file, "label", std::string("va\0lue", 6)));
  EXPECT_EQ(machine.attribute(file, "label"), "va");
  EXPECT_FALSE(Gatherer::setValueForLTFSExtendedAttributeAtLocation("/nowhere", "label", "value", exception));
  EXPECT_FALSE(exception) << "a refusal has no reason";
  EXPECT_FALSE(Gatherer::setValueForLTFSExtendedAttributeAtLocation("", "label", "value", exception));
  EXPECT_TRUE(exception);
}

TEST_F(Attributes, DatesAreWrittenInUTCWithTheMillisecondsOfTheirDay) {
  std::optional<Error> error;
  Gatherer::setExtendedModificationDateAttributesForFile(file, std::nullopt, error);
  EXPECT_EQ(machine.attribute(file, "ltfs.modifyTime"), std::nullopt);
  Gatherer::setExtendedModificationDateAttributesForFile(file, dateOf(1704164645.25), error);
  Gatherer::setExtendedCreationDateAttributesForFile(file, dateOf(-0.7504), error);
  EXPECT_EQ(machine.attribute(file, "ltfs.modifyTime"), "2024-01-02T03:04:05.11045250Z");
  EXPECT_EQ(machine.attribute(file, "ltfs.createTime"), "1969-12-31T23:59:59.86399250Z") << "the nearest";
  Gatherer::setExtendedModificationDateAttributesForFile(file, dateOf(-62135769600), error);
  Gatherer::setExtendedCreationDateAttributesForFile(file, dateOf(-62135769601), error);
  EXPECT_EQ(machine.attribute(file, "ltfs.modifyTime"), "0001-01-01T00:00:00.0Z") << "the distant past";
  EXPECT_EQ(machine.attribute(file, "ltfs.createTime"), "0001-12-31T23:59:59.86399000Z")
      << "of the era before";
  EXPECT_FALSE(error);

  Gatherer::setExtendedModificationDateAttributesForFile("/nowhere", dateOf(0), error);
  ASSERT_TRUE(error);
  EXPECT_EQ(error->domain, "extendedattributes");
  EXPECT_EQ(error->code, 1);
  EXPECT_EQ(error->userInfo, (Dictionary{{"result", "No such file: /nowhere\n"}}));
  const auto failsWith = [&](const SimulatedRun& run) {
    machine.installProgram(kTool, [run](const auto&) { return run; });
    error.reset();
    Gatherer::setExtendedCreationDateAttributesForFile(file, dateOf(0), error);
    return !error ? "nothing" : error->userInfo.begin()->first;
  };
  EXPECT_EQ(failsWith({{}, {}, std::nullopt}), "nothing") << "a lost status, and nothing to complain of";
  EXPECT_EQ(failsWith({{}, "oh", std::nullopt}), "result");
  EXPECT_EQ(failsWith({"\xff", {}, 1}), "exception");
  machine.removeProgram(kTool);
  Gatherer::setExtendedCreationDateAttributesForFile(file, dateOf(0), error);
  const Dictionary* raised = error->userInfo.find("exception")->asDictionary();
  ASSERT_NE(raised, nullptr);
  EXPECT_EQ(*raised->text("name"), "NSInvalidArgumentException");
  EXPECT_FALSE(raised->text("reason")->empty());
}

}  // namespace
}  // namespace kmv::simulation
