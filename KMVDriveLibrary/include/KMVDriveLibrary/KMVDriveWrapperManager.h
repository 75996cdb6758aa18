// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/CodexVirtualFileSystemWrapper.h>
#include <KMVDriveLibrary/Export.h>
#include <KMVDriveLibrary/KMVDiskAdditionalInformationProtocol.h>
#include <KMVDriveLibrary/KMVRootDiskWrapper.h>
#include <KMVDriveLibrary/Mutex.h>
#include <KMVDriveLibrary/NumberOrder.h>
#include <KMVDriveLibrary/Queue.h>
#include <KMVDriveLibrary/URL.h>
#include <KMVDriveLibrary/Value.h>
#include <KMVDriveLibrary/host/OrvaneApp.h>

#include <functional>
#include <map>
#include <memory>

namespace kmv::topology {
class CodexWrapperSupply;
}

/// Files every drive that the registry learns of under its whole disk, and gives the drive its wrapper.
/// Makes and keeps the wrappers of Codex volumes.
///
/// Life:    made by the first registry, as its first listener; lives as long as the process.
/// Threads: every member may be called from any thread.
///          Filing runs on a queue of its own, "KMVDriveWrapperManagerQueue", and waits for it; the snapshots
///          do not.
///          Codex wrappers are handed out on that queue.
class KMV_EXPORT KMVDriveWrapperManager
    : public KMVDiskAdditionalInformationProtocol,
      public ORVAppDriveWrapperManager<CodexVirtualFileSystemWrapper, KMVRootDiskWrapper> {
 public:
  /// Whole disks by BSD unit, in ascending order of the units.
  using VolumeWrappers = ORVAppDriveWrapperManager::VolumeWrappers;
  using CodexWrapper = std::shared_ptr<CodexVirtualFileSystemWrapper>;
  using WrapperSupply = std::function<void(const CodexWrapper& wrapper)>;

  /// The one manager of the process.
  /// Selector: shared
  static const std::shared_ptr<KMVDriveWrapperManager>& shared();
  /// The same.
  /// Selector: +sharedInstance
  static KMVDriveWrapperManager& sharedInstance();

  /// A separate manager without disks.
  /// Hosts use `shared`.
  /// Selector: init
  KMVDriveWrapperManager();
  ~KMVDriveWrapperManager() override;
  KMVDriveWrapperManager(const KMVDriveWrapperManager&) = delete;
  KMVDriveWrapperManager& operator=(const KMVDriveWrapperManager&) = delete;

  /// The whole disks that are alive at this moment.
  /// Selector: volumeWrappers
  VolumeWrappers volumeWrappers() const override;
  /// The same.
  /// Selector: allVolumeWrappers
  VolumeWrappers allVolumeWrappers() const;

  /// The Codex wrappers by the path of their volume's root.
  /// By the library's contract a wrapper is never removed, nor renewed when another volume is mounted at its path.
  /// Selector: codexVFSWrappers
  CodexVFSWrappers codexVFSWrappers() const override;

  /// Files the drive and stores its wrapper in it under `kDiskWrapperKey`.
  /// False, and the drive stays as it is, when it has no BSD name that is a text or no BSD unit that is a
  /// number; that is logged at debug level.
  /// The wrapper is built from a snapshot of the drive that nobody keeps, on purpose: see
  /// `backingDictionary`.
  /// Thread: any but the manager's queue, for which it waits.
  /// Failure: a null drive stops the process.
  /// Selector: addInformationAboutDiskDictionary:
  bool addInformationAboutDiskDictionary(const std::shared_ptr<kmv::DriveDictionary>& drive) override;

  /// Hands the Codex wrapper of the volume that holds `location` to `wrapperSupply`, exactly once and
  /// asynchronously, on the manager's queue; null when that volume is not a Codex volume or unknown.
  /// `arbiterDict` is the dictionary of its drive.
  /// One wrapper for each root path, made at the first request and kept for ever, by the library's contract: a later
  /// volume at the same mount point gets it too, and once it has seen a volume built and sized it tells that volume's
  /// state and size.
  /// A host that needs those of the later one makes a wrapper of its own, with `initWithRoot`.
  /// `requireIsReady` has no effect, on purpose: ask the wrapper.
  /// Returns at once.
  /// The volume is asked, and a new wrapper made, on another thread, so a volume that does not answer delays
  /// its own requests only: each volume is asked one question at a time, which equal requests that wait share.
  /// Requests about different volumes may be answered in any order.
  /// Selector: codexVFSWrapper(for:arbiterDict:requireIsReady:wrapperSupply:)
  void codexVFSWrapper(const kmv::URL& location, kmv::Dictionary arbiterDict, bool requireIsReady,
                       WrapperSupply wrapperSupply);

 private:
  KMVRootDiskWrapper::Wrapper file(const kmv::Value& unit, const kmv::DictionarySnapshot& contents);
  std::shared_ptr<KMVRootDiskWrapper> rootDiskOf(const kmv::Value& unit);

  std::shared_ptr<kmv::SerialQueue> queue_;
  mutable kmv::Mutex mutex_;
  std::map<kmv::Value, std::weak_ptr<KMVRootDiskWrapper>, kmv::NumberOrder> rootDisks_ KMV_GUARDED_BY(mutex_);
  std::size_t roomBeforeSweep_ KMV_GUARDED_BY(mutex_) = 0;
  std::shared_ptr<kmv::topology::CodexWrapperSupply> codex_;
};
