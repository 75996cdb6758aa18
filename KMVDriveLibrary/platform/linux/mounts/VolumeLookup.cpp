// SPDX-License-Identifier: MIT
#include "platform/linux/mounts/VolumeLookup.h"

#include <cerrno>
#include <utility>

namespace kmv {
namespace {

/// A table that changes faster than it can be looked at is taken as it is after so many looks.
constexpr int kMostLooks = 16;

std::optional<URL> rootOf(const MountTree& tree, std::uint64_t mountId) {
  const MountEntry* volume = tree.volumeOf(mountId);
  if (volume == nullptr) return std::nullopt;  // mounted elsewhere, or no longer
  return URL::fileURLWithPath(volume->point, /*isDirectory=*/true);
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
  Answer answer = view_.empty() ? find([&path] { return mountIdAtPath(path); })
                                : find([this, &path] { return mountIdAtPath(view_ + path); });
  const bool isDenied = answer.error == EACCES || answer.error == EPERM || answer.error == ENOSYS;
  return isDenied ? rootAbove(path) : std::move(answer.root);
}

VolumeLookup::Answer VolumeLookup::find(const Question& ask) {
  Cache& cache = cacheOfThisThread();
  for (int look = 0;; ++look) {
    const std::uint64_t changesBefore = cache.changes;
    const MountIdAnswer mount = ask();
    if (mount.error != 0) return {mount.error, std::nullopt};
    bool isCertain = false;
    auto root = rootIfCertain(cache, mount.id, changesBefore, isCertain);
    if (isCertain || look == kMostLooks) return {0, std::move(root)};
  }
}

/// Certain is what was found without a change of the table since before the item was asked.
/// Another thread of the cache may have seen the change, which the descriptor reports only once.
std::optional<URL> VolumeLookup::rootIfCertain(Cache& cache, std::uint64_t mountId,
                                               std::uint64_t changesBefore, bool& isCertain) {
  const MutexLock lock(cache.mutex);
  isCertain = !cache.isOutdated() && cache.changes == changesBefore;
  const auto known = cache.roots.find(mountId);
  if (known != cache.roots.end()) return known->second;
  auto root = rootOfMount(mountId);
  isCertain = isCertain && !cache.isOutdated();
  if (root && isCertain) cache.roots.emplace(mountId, *root);
  return root;
}

VolumeLookup::Cache& VolumeLookup::cacheOfThisThread() {
  static std::atomic<std::size_t> threads{0};
  static thread_local const std::size_t number = threads.fetch_add(1, std::memory_order_relaxed);
  return caches_[number % kCaches];
}

// Without a descriptor nothing is ever certain, nor cached.
bool VolumeLookup::Cache::isOutdated() {
  if (!probe->hasChanged()) return false;
  roots.clear();
  ++changes;
  return true;
}

std::optional<URL> VolumeLookup::rootOfMount(std::uint64_t mountId) const {
  std::optional<URL> root;
  mounts_->read([&](const MountTree& tree) { root = rootOf(tree, mountId); });
  return root;
}

/// By the text of the path, which is all there is to go by where the path may not be asked.
std::optional<URL> VolumeLookup::rootAbove(const std::string& path) const {
  std::optional<URL> root;
  mounts_->read([&](const MountTree& tree) {
    if (const MountEntry* mount = tree.mountAbove(path)) root = rootOf(tree, mount->reusedId);
  });
  return root;
}

}  // namespace kmv
