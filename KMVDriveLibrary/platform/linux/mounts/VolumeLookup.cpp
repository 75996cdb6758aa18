// SPDX-License-Identifier: MIT
#include "platform/linux/mounts/VolumeLookup.h"

#include <time.h>

#include <cerrno>
#include <utility>

namespace kmv {
namespace {

/// A table that changes faster than it can be looked at is taken as it is after so many looks.
constexpr int kMostLooks = 16;

std::optional<URL> urlOf(const MountEntry* volume) {
  if (volume == nullptr) return std::nullopt;  // mounted elsewhere, or no longer
  return URL::fileURLWithPath(volume->point, /*isDirectory=*/true);
}

/// The kernel's clock as of its last tick (some milliseconds), which costs a few nanoseconds.
std::int64_t tick() {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
  return now.tv_sec * std::int64_t{1'000'000'000} + now.tv_nsec;
}

}  // namespace

VolumeLookup::VolumeLookup(const LinuxOptions& options, std::shared_ptr<MountTable> mounts)
    : view_(options.view()), mounts_(std::move(mounts)) {
  for (Cache& cache : caches_) {
    const MutexLock lock(cache.mutex);
    cache.probe = mounts_->makeProbe();
  }
}

VolumeLookup::~VolumeLookup() = default;

std::optional<URL> VolumeLookup::volumeHolding(const std::string& path) {
  Answer answer = view_.empty()
                      ? find([&path](MountIdKind wanted) { return mountIdAtPath(path, wanted); })
                      : find([&](MountIdKind wanted) { return mountIdAtPath(view_ + path, wanted); });
  const bool isDenied = answer.error == EACCES || answer.error == EPERM || answer.error == ENOSYS;
  return isDenied ? rootAbove(path) : std::move(answer.root);
}

VolumeLookup::Answer VolumeLookup::find(const Question& ask) {
  Cache& cache = cacheOfThisThread();
  MountIdKind wanted =
      tableHasUniqueIds_.load(std::memory_order_relaxed) ? MountIdKind::uniqueIfKnown : MountIdKind::reused;
  bool wasUnknown = false;
  for (int look = 0;; ++look) {
    const std::uint64_t changesBefore = cache.changes;
    const MountIdAnswer mount = ask(wanted);
    if (mount.error != 0) return {mount.error, std::nullopt};
    bool isCertain = false;
    auto root = rootIfCertain(cache, mount, changesBefore, isCertain);
    const bool isLast = isCertain || look >= kMostLooks;
    if (isLast && !root && mount.isUnique) {
      wasUnknown = true;
      wanted = MountIdKind::reused;
      continue;
    }
    if (isLast && root && wasUnknown) tableHasUniqueIds_.store(false, std::memory_order_relaxed);
    if (isLast) return {0, std::move(root)};
  }
}

/// Certain is what was found without a change of the table since before the item was asked.
/// Another thread of the cache may have seen the change, which the descriptor reports only once.
std::optional<URL> VolumeLookup::rootIfCertain(Cache& cache, const MountIdAnswer& mount,
                                               std::uint64_t changesBefore, bool& isCertain) {
  const MutexLock lock(cache.mutex);
  auto known = cache.roots.find(mount.id);
  if (known != cache.roots.end() && known->second.isOwn && mount.isUnique && cache.isFresh()) {
    isCertain = true;
    return known->second.url;
  }
  isCertain = !cache.isOutdated() && cache.changes == changesBefore;
  known = cache.roots.find(mount.id);
  if (known != cache.roots.end()) return known->second.url;
  auto root = rootOfMount(mount);
  isCertain = isCertain && !cache.isOutdated();
  if (!root) return std::nullopt;
  if (isCertain) cache.roots.emplace(mount.id, *root);
  return std::move(root->url);
}

VolumeLookup::Cache& VolumeLookup::cacheOfThisThread() {
  static std::atomic<std::size_t> threads{0};
  static thread_local const std::size_t number = threads.fetch_add(1, std::memory_order_relaxed);
  return caches_[number % kCaches];
}

// Without a descriptor nothing is ever certain, nor cached.
bool VolumeLookup::Cache::isOutdated() {
  askedAt = tick();  // before the question
  if (!probe->hasChanged()) return false;
  roots.clear();
  ++changes;
  return true;
}

bool VolumeLookup::Cache::isFresh() const {
  return askedAt == tick() && !probe->wasOvertaken();
}

std::optional<VolumeLookup::Root> VolumeLookup::rootOfMount(const MountIdAnswer& mount) const {
  std::optional<Root> root;
  mounts_->read([&](const MountTree& tree) {
    const MountEntry* const volume = mount.isUnique ? tree.volumeOfMount(mount.id) : tree.volumeOf(mount.id);
    if (auto url = urlOf(volume)) root = Root{std::move(*url), volume->id == mount.id};
  });
  return root;
}

/// By the text of the path, which is all there is to go by where the path may not be asked.
std::optional<URL> VolumeLookup::rootAbove(const std::string& path) const {
  std::optional<URL> root;
  mounts_->read([&](const MountTree& tree) {
    if (const MountEntry* mount = tree.mountAbove(path)) root = urlOf(tree.volumeOfMount(mount->id));
  });
  return root;
}

}  // namespace kmv
