// SPDX-License-Identifier: MIT
#include "kmvdrive/DriveLedger.h"
#include "support/Testing.h"

namespace kmv::tool {
namespace {

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
