// SPDX-License-Identifier: MIT
#include "platform/linux/mounts/MountInfoWatcher.h"

#include <utility>

namespace kmv {
namespace {

/// A table that changes during every read is taken as it is after this many; the next report brings the rest.
constexpr int kMostReads = 4;

}  // namespace

std::optional<MountDelta> MountInfoWatcher::refresh(bool anew) {
  if (!file_.hasChanged() && !anew && !isUnread_) return MountDelta();
  std::optional<std::string> text = readUndisturbed();
  isUnread_ = !text;
  if (!text) return std::nullopt;
  if (*text == text_) return MountDelta();
  text_ = std::move(*text);
  std::vector<MountEntry> entries = parseMountInfo(text_);
  MountDelta delta = diffMountTables(entries_, entries);
  entries_ = std::move(entries);
  return delta;
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
