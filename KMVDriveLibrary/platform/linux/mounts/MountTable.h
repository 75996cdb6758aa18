// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/HiddenMounts.h>
#include <KMVDriveLibrary/Mutex.h>

#include <functional>
#include <map>
#include <memory>

#include "platform/linux/LinuxOptions.h"
#include "platform/linux/mounts/DutyCycle.h"
#include "platform/linux/mounts/MountTableWatcher.h"
#include "platform/linux/mounts/MountTree.h"

namespace kmv {

class MountFollower;

/// The one mount table of a platform: read by one watcher, kept as one tree, for everybody who asks about
/// mounts. It catches up with the kernel when somebody asks and the kernel reports a change; nothing happens
/// in between. The tree is brought up to date lazily, by whoever reads it and not by who only follows the
/// differences. Threads: any.
class MountTable {
 public:
  using Reader = std::function<void(const MountTree&)>;

  explicit MountTable(const LinuxOptions& options);
  MountTable(std::unique_ptr<MountTableWatcher> watcher, MountTree::IsDirectory isDirectory);
  ~MountTable();

  /// Hands the table as it is now to `reader`, under the lock: it copies what it needs and asks nobody. False
  /// when the table could not be read, which leaves it as it was known.
  bool read(const Reader& reader) KMV_EXCLUDES(mutex_);
  /// The same, but the table is always read again: the kernel reports a renamed folder above a mount point to
  /// nobody.
  bool readAnew(const Reader& reader) KMV_EXCLUDES(mutex_);
  /// The same for who asks many times in a row (throttled): most of the time what was read a moment ago, a tenth
  /// of a second at most, serves again.
  bool readThrottled(const Reader& reader) KMV_EXCLUDES(mutex_);

  /// False when the table could not be read when somebody last asked.
  bool isReadable() const KMV_EXCLUDES(mutex_);

  /// Becomes readable (EPOLLIN) with each change and stays so until somebody reads the table or follows it; -1
  /// where only `MountInfoFile` reports a change.
  int descriptor() const KMV_EXCLUDES(mutex_);
  std::unique_ptr<MountChangeProbe> makeProbe() const KMV_EXCLUDES(mutex_);
  MountEvents events() const KMV_EXCLUDES(mutex_);

 private:
  friend class MountFollower;

  struct Followed {
    MountBacklog backlog;
    std::function<void()> wake;
  };

  bool readTree(bool anew, const Reader& reader) KMV_REQUIRES(mutex_);
  bool follow(bool anew, const MountFollower* asker = nullptr) KMV_REQUIRES(mutex_);
  void updateTree() KMV_REQUIRES(mutex_);

  mutable Mutex mutex_;
  const std::unique_ptr<MountTableWatcher> watcher_ KMV_PT_GUARDED_BY(mutex_);
  bool isReadable_ KMV_GUARDED_BY(mutex_) = true;
  DutyCycle readings_ KMV_GUARDED_BY(mutex_);  // anew
  MountTree tree_ KMV_GUARDED_BY(mutex_);
  MountBacklog unapplied_ KMV_GUARDED_BY(mutex_);  // of the tree
  std::map<const MountFollower*, Followed> followers_ KMV_GUARDED_BY(mutex_);
};

/// Is told every difference of the table once, beside any number of others. Thread: one at a time.
class MountFollower {
 public:
  /// `wake` is called, under the table's lock, when somebody else made the table catch up and there is something
  /// to take: the report that a poll waits for may be gone.
  explicit MountFollower(std::shared_ptr<MountTable> table, std::function<void()> wake = {});
  ~MountFollower();
  MountFollower(const MountFollower&) = delete;
  MountFollower& operator=(const MountFollower&) = delete;

  /// What changed since the last call; everything is attached by the first.
  MountDeltas take();

  /// The same with the tree that results from it, under the table's lock.
  void read(const std::function<void(const MountDeltas&, const MountTree&)>& reader);

 private:
  const std::shared_ptr<MountTable> table_;
};

}  // namespace kmv
