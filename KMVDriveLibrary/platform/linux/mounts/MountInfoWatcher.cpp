// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <poll.h>
#include <sys/epoll.h>

#include <algorithm>
#include <unordered_map>

#include "platform/linux/mounts/MountTableWatcher.h"
#include "platform/posix/FileDescriptor.h"
#include "platform/posix/SystemFiles.h"

namespace kmv {
namespace {

/// Room between two neighbours of the table, for mounts that come to stand between them.
constexpr std::uint64_t kOrderStep = std::uint64_t{1} << 20;

/// A table that changes during every read is taken as it is after this many; the next report brings the rest.
constexpr int kMostReads = 4;

class MountInfoWatcher final : public MountTableWatcher {
 public:
  explicit MountInfoWatcher(const std::string& procRoot)
      : file_(::open((procRoot + "/self/mountinfo").c_str(), O_RDONLY | O_CLOEXEC)) {}

  int descriptor() const override { return file_.get(); }

  // Never EPOLLIN: the file is always readable.
  std::uint32_t epollEvents() const override { return EPOLLPRI; }

  MountDelta refresh(bool reported) override {
    if (!file_) return {};
    const bool first = std::exchange(first_, false);
    bool changed = pollChanged() || reported || first || std::exchange(unread_, false);
    if (!changed) return {};
    std::optional<std::string> text;
    // A long table takes several reads, between which it can change; the report tells, and polling consumes
    // it.
    for (int reads = 0; changed && reads < kMostReads; ++reads) {
      text = readWhole(file_.get());
      // After the last read the report is left where it is: it tells once more.
      changed = reads + 1 < kMostReads && pollChanged();
    }
    unread_ = !text;
    if (!text || *text == text_) return {};
    text_ = std::move(*text);
    auto entries = parseMountInfo(text_);
    auto delta = diffMountTables(entries_, entries);
    entries_ = std::move(entries);
    return delta;
  }

 private:
  bool pollChanged() const {
    pollfd request{file_.get(), POLLPRI, 0};
    return ::poll(&request, 1, 0) > 0 && (request.revents & POLLPRI) != 0;
  }

  FileDescriptor file_;
  bool first_ = true;
  bool unread_ = false;  // it could not be read when it had changed
  std::string text_;
  std::vector<MountEntry> entries_;
};

/// For each new entry the order of the old one that it stays, or 0. An entry whose place among its neighbours
/// changed counts as new.
std::vector<std::uint64_t> keptOrders(const std::vector<MountEntry>& older,
                                      const std::vector<MountEntry>& newer) {
  std::unordered_map<std::uint64_t, const MountEntry*> known;
  known.reserve(older.size());
  for (const MountEntry& entry : older) known.emplace(entry.id, &entry);
  std::vector<std::uint64_t> orders(newer.size(), 0);
  std::uint64_t last = 0;
  for (std::size_t i = 0; i < newer.size(); ++i) {
    const auto found = known.find(newer[i].id);
    if (found == known.end() || !isSameMount(*found->second, newer[i]) || found->second->order <= last)
      continue;
    last = orders[i] = found->second->order;
  }
  return orders;
}

}  // namespace

MountDelta diffMountTables(const std::vector<MountEntry>& older, std::vector<MountEntry>& newer) {
  const std::vector<std::uint64_t> kept = keptOrders(older, newer);
  MountDelta delta;
  std::unordered_map<std::uint64_t, std::uint64_t> gone;  // id to order
  std::unordered_map<std::uint64_t, bool> stays;
  for (std::size_t i = 0; i < newer.size(); ++i) {
    if (kept[i] != 0) stays.emplace(newer[i].id, true);
  }
  for (const MountEntry& entry : older) {
    if (stays.contains(entry.id)) continue;
    gone.emplace(entry.id, entry.order);
    delta.detached.push_back(entry);
  }
  std::uint64_t previous = 0;
  std::uint64_t end = older.empty() ? 0 : older.back().order;
  std::size_t next = 0;  // the nearest entry from here on that stays
  for (std::size_t i = 0; i < newer.size(); ++i) {
    if (kept[i] != 0) {
      previous = newer[i].order = kept[i];
      continue;
    }
    next = std::max(next, i);
    while (next < newer.size() && kept[next] == 0) ++next;
    if (next == newer.size()) {
      // Behind everything that stays: a new mount.
      previous = newer[i].order = end = std::max(end, previous) + kOrderStep;
    } else {
      // Between two that stay: a mount that moved keeps its place.
      const auto moved = gone.find(newer[i].id);
      const bool fits = moved != gone.end() && moved->second > previous && moved->second < kept[next];
      previous = newer[i].order = fits ? moved->second : previous + (kept[next] - previous) / 2;
    }
    delta.attached.push_back(newer[i]);
  }
  return delta;
}

std::unique_ptr<MountTableWatcher> makeMountInfoWatcher(const std::string& procRoot) {
  return std::make_unique<MountInfoWatcher>(procRoot);
}

}  // namespace kmv
