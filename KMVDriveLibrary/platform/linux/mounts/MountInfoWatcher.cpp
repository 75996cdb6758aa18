// SPDX-License-Identifier: MIT
#include "platform/linux/mounts/MountInfoWatcher.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <utility>

namespace kmv {
namespace {

/// A table that changes during every read is taken as it is after this many; the next report brings the rest.
constexpr int kMostReads = 4;

constexpr std::size_t kBlock = 4096;

/// How many bytes both begin with. Whole blocks first, which memcmp compares fastest.
std::size_t commonBeginning(std::string_view a, std::string_view b) {
  const std::size_t most = std::min(a.size(), b.size());
  std::size_t same = 0;
  while (most - same >= kBlock && std::memcmp(a.data() + same, b.data() + same, kBlock) == 0) same += kBlock;
  while (same < most && a[same] == b[same]) ++same;
  return same;
}

std::size_t commonEnd(std::string_view a, std::string_view b) {
  const std::size_t most = std::min(a.size(), b.size());
  const char *const endA = a.data() + a.size(), *const endB = b.data() + b.size();
  std::size_t same = 0;
  while (most - same >= kBlock && std::memcmp(endA - same - kBlock, endB - same - kBlock, kBlock) == 0)
    same += kBlock;
  while (same < most && *(endA - same - 1) == *(endB - same - 1)) ++same;
  return same;
}

/// Two texts without the lines that both begin and end with.
struct Middle {
  std::size_t begin, endOfOlder, endOfNewer;
};
Middle differingLines(std::string_view older, std::string_view newer) {
  std::size_t begin = commonBeginning(older, newer);
  while (begin > 0 && older[begin - 1] != '\n') --begin;
  std::size_t end = commonEnd(older.substr(begin), newer.substr(begin));
  // A line is the same only from its very beginning.
  const auto startsLine = [&](std::size_t place) { return place == begin || older[place - 1] == '\n'; };
  const auto startsNewLine = [&](std::size_t place) { return place == begin || newer[place - 1] == '\n'; };
  while (end > 0 && (!startsLine(older.size() - end) || !startsNewLine(newer.size() - end))) --end;
  return {begin, older.size() - end, newer.size() - end};
}

}  // namespace

MountInfoWatcher::MountInfoWatcher(const LinuxOptions& options, std::vector<MountEntry> known)
    : options_(options), file_(options), entries_(std::move(known)), lines_(entries_.size()) {
  std::unordered_set<std::uint64_t> ids;
  for (const MountEntry& entry : entries_) {
    ids.insert(entry.id);
    taken_.insert(entry.reusedId);
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
  return Changes{replace(std::move(*text))};
}

MountDelta MountInfoWatcher::replace(std::string text) {
  // All lines where entries have none: those that another watcher told, and those beside a record that was dropped.
  const bool isWhole = text_.empty() || std::exchange(hasDropped_, false);
  const Middle middle = isWhole ? Middle{0, text_.size(), text.size()} : differingLines(text_, text);
  const auto first = isWhole ? 0 : entryAt(middle.begin);
  const auto last = isWhole ? std::ssize(entries_) : entryAt(middle.endOfOlder);
  const std::uint64_t before = first == 0 ? 0 : entries_[static_cast<std::size_t>(first) - 1].order;
  const std::uint64_t behind =
      last == std::ssize(entries_) ? 0 : entries_[static_cast<std::size_t>(last)].order;
  const std::vector<MountEntry> older = takeOut(first, last);
  for (std::size_t i = static_cast<std::size_t>(first); i < lines_.size(); ++i)
    lines_[i] += middle.endOfNewer - middle.endOfOlder;
  text_ = std::move(text);
  std::vector<std::size_t> lines;
  std::vector<MountEntry> newer = parsed(middle.begin, middle.endOfNewer, lines);
  MountDelta delta = diffMountTables(older, newer, before, behind);
  lines_.insert(lines_.begin() + first, lines.begin(), lines.end());
  entries_.insert(entries_.begin() + first, std::move_iterator(newer.begin()),
                  std::move_iterator(newer.end()));
  return delta;
}

/// The first entry whose line begins there or later.
std::ptrdiff_t MountInfoWatcher::entryAt(std::size_t place) const {
  return std::lower_bound(lines_.begin(), lines_.end(), place) - lines_.begin();
}

std::vector<MountEntry> MountInfoWatcher::takeOut(std::ptrdiff_t first, std::ptrdiff_t last) {
  std::vector<MountEntry> taken(std::move_iterator(entries_.begin() + first),
                                std::move_iterator(entries_.begin() + last));
  for (const MountEntry& entry : taken) taken_.erase(entry.reusedId);
  entries_.erase(entries_.begin() + first, entries_.begin() + last);
  lines_.erase(lines_.begin() + first, lines_.begin() + last);
  return taken;
}

/// The records of some lines; one whose id occurred before is dropped, in a table that changed while it was read.
std::vector<MountEntry> MountInfoWatcher::parsed(std::size_t begin, std::size_t end,
                                                 std::vector<std::size_t>& lines) {
  std::vector<MountEntry> entries;
  const std::string_view text = std::string_view(text_).substr(0, end);
  for (std::size_t place = begin; place < end;) {
    const std::size_t lineEnd = std::min(text.find('\n', place), end);
    auto entry = parseMountLine(text.substr(place, lineEnd - place));
    const bool isNew = entry && taken_.insert(entry->reusedId).second;
    hasDropped_ = hasDropped_ || (entry && !isNew);
    if (isNew) {
      lines.push_back(place);
      entries.push_back(std::move(*entry));
    }
    place = lineEnd + 1;
  }
  restoreIds(entries);
  return entries;
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
