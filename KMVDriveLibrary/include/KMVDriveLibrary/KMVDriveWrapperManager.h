// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Export.h>
#include <KMVDriveLibrary/KMVDiskAdditionalInformationProtocol.h>
#include <KMVDriveLibrary/KMVRootDiskWrapper.h>
#include <KMVDriveLibrary/NumberOrder.h>
#include <KMVDriveLibrary/Queue.h>

#include <map>
#include <memory>
#include <mutex>

/// Files every drive that the registry learns of under its whole disk, and gives the drive its wrapper.
///
/// Life:    made by the first registry, as its first listener; lives as long as the process.
/// Threads: every member may be called from any thread. Filing runs on a queue of its own,
/// "KMVDriveWrapperManagerQueue",
///          and waits for it; the snapshots do not.
class KMV_EXPORT KMVDriveWrapperManager : public KMVDiskAdditionalInformationProtocol {
 public:
  /// Whole disks by BSD unit, in ascending order of the units.
  using VolumeWrappers = std::map<kmv::Value, std::shared_ptr<KMVRootDiskWrapper>, kmv::NumberOrder>;

  /// The one manager of the process. (shared)
  static const std::shared_ptr<KMVDriveWrapperManager>& shared();
  /// The same. Selector: +sharedInstance
  static KMVDriveWrapperManager& sharedInstance();

  /// A manager of its own, without a disk. Hosts use `shared`. Selector: init
  KMVDriveWrapperManager();
  ~KMVDriveWrapperManager() override;
  KMVDriveWrapperManager(const KMVDriveWrapperManager&) = delete;
  KMVDriveWrapperManager& operator=(const KMVDriveWrapperManager&) = delete;

  /// The whole disks that are alive at this moment. (volumeWrappers)
  VolumeWrappers volumeWrappers() const;
  /// The same. Selector: allVolumeWrappers
  VolumeWrappers allVolumeWrappers() const;

  /// Files the drive and stores its wrapper in it under `kDiskWrapperKey`. False, and the drive stays as it
  /// is, when it has no BSD name that is a text or no BSD unit that is a number; that is logged at debug
  /// level. The wrapper is built from a copy of the drive that nobody keeps, on purpose: see
  /// `backingDictionary`. Thread: any but the manager's queue, for which it waits. Failure: no drive at all
  /// stops the process. Selector: addInformationAboutDiskDictionary:
  bool addInformationAboutDiskDictionary(const std::shared_ptr<kmv::DriveDictionary>& drive) override;

 private:
  KMVRootDiskWrapper::Wrapper file(const kmv::Value& unit, const kmv::DictionarySnapshot& contents);
  std::shared_ptr<KMVRootDiskWrapper> rootDiskOf(const kmv::Value& unit);

  std::shared_ptr<kmv::SerialQueue> queue_;
  mutable std::mutex mutex_;
  std::map<kmv::Value, std::weak_ptr<KMVRootDiskWrapper>, kmv::NumberOrder> rootDisks_;
  std::size_t roomBeforeSweep_ = 0;
};
