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

bool MountTable::follow(bool anew) {
  std::optional<MountDelta> delta = watcher_->refresh(anew);
  isReadable_ = delta.has_value();
  if (!delta || delta->empty()) return isReadable_;
  const auto shared = std::make_shared<const MountDelta>(std::move(*delta));
  unapplied_.add(shared);
  for (auto& [follower, backlog] : followers_) backlog.add(shared);
  return true;
}

void MountTable::updateTree() {
  for (const auto& delta : unapplied_.take()) tree_.apply(*delta);
}

MountFollower::MountFollower(std::shared_ptr<MountTable> table) : table_(std::move(table)) {
  const MutexLock lock(table_->mutex_);
  table_->updateTree();
  MountDelta present;
  table_->tree_.forEach(
      [&](const MountEntry& entry, std::string_view) { present.attached.push_back(entry); });
  MountBacklog& backlog = table_->followers_[this];
  if (!present.empty()) backlog.add(std::make_shared<const MountDelta>(std::move(present)));
}

MountFollower::~MountFollower() {
  const MutexLock lock(table_->mutex_);
  table_->followers_.erase(this);
}

MountDeltas MountFollower::take() {
  const MutexLock lock(table_->mutex_);
  table_->follow(/*anew=*/false);
  return table_->followers_[this].take();
}

void MountFollower::read(const std::function<void(const MountDeltas&, const MountTree&)>& reader) {
  const MutexLock lock(table_->mutex_);
  table_->follow(/*anew=*/false);
  table_->updateTree();
  reader(table_->followers_[this].take(), table_->tree_);
}

}  // namespace kmv
