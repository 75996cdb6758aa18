// SPDX-License-Identifier: MIT
#include "kmvdrive/DriveLedger.h"

#include <KMVDriveLibrary/DescriptionKeys.h>

namespace kmv::tool {

DriveLedger::Key DriveLedger::keyOf(const Dictionary& contents) {
  const URL* url = contents.url(key::kVolumePath);
  return {url == nullptr ? std::string() : url->absoluteString(), contents.doubleValue(key::kAppearanceTime)};
}

void DriveLedger::announced(const Drive& drive) {
  if (entries_.contains(drive.get())) return;
  const DictionarySnapshot contents = drive->snapshot();
  entries_[drive.get()] = drives_.emplace(keyOf(*contents), drive);
  if (settled_) show_(DriveEvent::added, *contents);
}

void DriveLedger::changed(const Drive& drive, const DictionarySnapshot& contents) {
  const auto known = entries_.find(drive.get());
  if (known == entries_.end()) return;
  drives_.erase(known->second);
  known->second = drives_.emplace(keyOf(*contents), drive);
  if (settled_) show_(DriveEvent::changed, *contents);
}

void DriveLedger::removed(const DictionarySnapshot& contents) {
  const auto entry = drives_.find(keyOf(*contents));
  if (entry == drives_.end()) return;
  forget(entry);
  if (settled_) show_(DriveEvent::removed, *contents);
}

void DriveLedger::answered(DriveEvent event, const Dictionary& contents) {
  if (settled_) show_(event, contents);
}

void DriveLedger::settle() {
  settled_ = true;
  for (const auto& [key, drive] : drives_) show_(DriveEvent::present, *drive->snapshot());
}

void DriveLedger::forget(std::multimap<Key, Drive>::iterator entry) {
  entries_.erase(entry->second.get());
  drives_.erase(entry);
}

}  // namespace kmv::tool
