// SPDX-License-Identifier: MIT
#include "platform/linux/mounts/MountTable.h"

#include <optional>
#include <utility>

#include "platform/linux/mounts/PointType.h"

namespace kmv {

MountTable::MountTable(const LinuxOptions& options)
    : MountTable(makeMountTableWatcher(options),
                 [view = options.view()](const MountEntry& mount, bool isLocal) {
                   return pointIsDirectory(view, mount, isLocal);
                 }) {}

MountTable::MountTable(std::unique_ptr<MountTableWatcher> watcher, MountTree::IsDirectory isDirectory)
    : watcher_(std::move(watcher)), tree_(std::move(isDirectory)) {}

MountTable::~MountTable() = default;

bool MountTable::read(const Reader& reader) {
  const MutexLock lock(mutex_);
  return readTree(/*anew=*/false, reader);
}

bool MountTable::readAnew(const Reader& reader) {
  const MutexLock lock(mutex_);
  return readTree(/*anew=*/true, reader);
}

bool MountTable::isReadable() const {
  const MutexLock lock(mutex_);
  return isReadable_;
}

bool MountTable::readThrottled(const Reader& reader) {
  const MutexLock lock(mutex_);
  return readTree(/*anew=*/DutyCycle::Clock::now() >= readings_.next(), reader);
}

bool MountTable::readTree(bool anew, const Reader& reader) {
  const auto begin = DutyCycle::Clock::now();
  const bool isKnown = follow(anew);
  if (anew) readings_.looked(begin, DutyCycle::Clock::now());
  updateTree();
  reader(tree_);
  return isKnown;
}

bool MountTable::follow(bool anew, const MountFollower* asker) {
  std::optional<MountTableWatcher::Changes> changes = watcher_->refresh(anew);
  isReadable_ = changes.has_value();
  if (!changes) return false;
  std::erase_if(*changes, [](const MountDelta& delta) { return delta.empty(); });
  for (MountDelta& delta : *changes) {
    const auto shared = std::make_shared<const MountDelta>(std::move(delta));
    unapplied_.add(shared);
    for (auto& [follower, followed] : followers_) followed.backlog.add(shared);
  }
  if (changes->empty()) return true;
  for (const auto& [follower, followed] : followers_) {
    if (follower != asker && followed.wake) followed.wake();
  }
  return true;
}

int MountTable::descriptor() const {
  const MutexLock lock(mutex_);
  return watcher_->descriptor();
}

std::unique_ptr<MountChangeProbe> MountTable::makeProbe() const {
  const MutexLock lock(mutex_);
  return watcher_->makeProbe();
}

MountEvents MountTable::events() const {
  const MutexLock lock(mutex_);
  return {watcher_->name(), watcher_->reason(), watcher_->missed()};
}

void MountTable::updateTree() {
  for (const auto& delta : unapplied_.take()) tree_.apply(*delta);
}

MountFollower::MountFollower(std::shared_ptr<MountTable> table, std::function<void()> wake)
    : table_(std::move(table)) {
  const MutexLock lock(table_->mutex_);
  table_->updateTree();
  MountDelta present;
  table_->tree_.forEach(
      [&](const MountEntry& entry, std::string_view) { present.attached.push_back(entry); });
  MountTable::Followed& followed = table_->followers_[this];
  followed.wake = std::move(wake);
  if (!present.empty()) followed.backlog.add(std::make_shared<const MountDelta>(std::move(present)));
}

MountFollower::~MountFollower() {
  const MutexLock lock(table_->mutex_);
  table_->followers_.erase(this);
}

MountDeltas MountFollower::take() {
  const MutexLock lock(table_->mutex_);
  table_->follow(/*anew=*/false, this);
  return table_->followers_[this].backlog.take();
}

void MountFollower::read(const std::function<void(const MountDeltas&, const MountTree&)>& reader) {
  const MutexLock lock(table_->mutex_);
  table_->follow(/*anew=*/false, this);
  table_->updateTree();
  reader(table_->followers_[this].backlog.take(), table_->tree_);
}

}  // namespace kmv
