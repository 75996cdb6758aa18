// SPDX-License-Identifier: MIT
#include "platform/linux/mounts/MountInfoWatcher.h"

#include <unordered_set>
#include <utility>

namespace kmv {
namespace {

/// A table that changes during every read is taken as it is after this many; the next report brings the rest.
constexpr int kMostReads = 4;

}  // namespace

MountInfoWatcher::MountInfoWatcher(const LinuxOptions& options, std::vector<MountEntry> known)
    : options_(options), file_(options), entries_(std::move(known)) {
  std::unordered_set<std::uint64_t> ids;
  for (const MountEntry& entry : entries_) {
    ids.insert(entry.id);
    uniqueIds_.emplace(entry.reusedId, entry.id);
  }
  for (const MountEntry& entry : entries_) {
    if (!ids.contains(entry.parent)) parentsOutside_.emplace(entry.id, entry.parent);
  }
}

std::optional<MountTableWatcher::Changes> MountInfoWatcher::refresh(bool anew) {
  const bool isReported = file_.hasChanged();
  if (!isReported && !anew && !isUnread_) return Changes();
  std::optional<std::string> text = readUndisturbed();
  isUnread_ = !text;
  if (!text) return std::nullopt;
  if (*text == text_) {
    if (isReported) ++missed_;
    return Changes();
  }
  text_ = std::move(*text);
  std::vector<MountEntry> entries = parseMountInfo(text_);
  restoreIds(entries);
  MountDelta delta = diffMountTables(entries_, entries);
  entries_ = std::move(entries);
  return Changes{std::move(delta)};
}

std::unique_ptr<MountChangeProbe> MountInfoWatcher::makeProbe() const {
  return std::make_unique<MountInfoProbe>(options_);
}

/// A mount that was told by its unique id keeps it. Unique ids are above all that are reused.
void MountInfoWatcher::restoreIds(std::vector<MountEntry>& entries) const {
  if (uniqueIds_.empty()) return;
  const auto restored = [&](std::uint64_t reusedId) {
    const auto before = uniqueIds_.find(reusedId);
    return before == uniqueIds_.end() ? reusedId : before->second;
  };
  for (MountEntry& entry : entries) {
    entry.id = restored(entry.id);
    const auto outside = parentsOutside_.find(entry.id);
    entry.parent = outside == parentsOutside_.end() ? restored(entry.parent) : outside->second;
  }
}

/// A long table takes several reads, between which it can change; the report tells, and polling consumes it.
/// After the last read the report stays where it is.
std::optional<std::string> MountInfoWatcher::readUndisturbed() {
  std::optional<std::string> text = file_.read();
  for (int reads = 1; reads < kMostReads && file_.hasChanged(); ++reads) {
    std::optional<std::string> again = file_.read();
    if (again == text) return text;  // nothing came of the change, or this file reports one always
    text = std::move(again);
  }
  return text;
}

}  // namespace kmv
