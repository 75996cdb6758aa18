// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Disk.h>
#include <KMVDriveLibrary/DriveDictionary.h>
#include <KMVDriveLibrary/Export.h>
#include <KMVDriveLibrary/KMVDiskAdditionalInformationProtocol.h>
#include <KMVDriveLibrary/LiveCollections.h>
#include <KMVDriveLibrary/PresentDriveTable.h>
#include <KMVDriveLibrary/Queue.h>
#include <KMVDriveLibrary/Semaphore.h>
#include <KMVDriveLibrary/URL.h>
#include <KMVDriveLibrary/UnmountedDiskList.h>
#include <KMVDriveLibrary/Value.h>
#include <KMVDriveLibrary/host/OrvaneDataIO.h>

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kmv {
class DiskArbitrationSession;
}

/// The process-wide registry of drives, and the way into the library.
///
/// Life:    `sharedInstance()` makes it, `startArbiter()` lets it listen to the platform; both once, at
///          launch.
///          Nothing stops it; it lives as long as the process.
/// Events:  the platform's events run on the arbiter queue and turn into changes of the lists and into
///          notifications on the default notification centre (docs/threads.md says which arrives where).
/// Threads: every member may be called from any thread.
///          Members that wait for the arbiter queue say so and must not be called on it.
/// Late:    a drive is announced when its disk has been identified, on Linux after five seconds at the latest. One
///          whose disk takes longer has no "driveUUIDKey" and is named after its mount point; when the disk answers
///          after all, the drive is removed and announced once more, with its identity and as not mounted before.
/// Locks:   writers take all 8 units of the semaphore, then the asset queue, never the other way round;
///          readers take the asset queue alone.
class KMV_EXPORT KMVDiskArbiter : public kmv::Object {
 public:
  using Drive = std::shared_ptr<kmv::DriveDictionary>;
  using Listener = std::shared_ptr<KMVDiskAdditionalInformationProtocol>;
  using UnmountedDictionaries = std::vector<kmv::DictionarySnapshot>;

  /// The one registry of the process.
  /// Every call first fills the variables `kDAVolumeKindKey`, `kDAMediaBSDName`, `kDAMediaBSDUnit` and
  /// `kDAMediaContentKey`; the first one makes the registry.
  /// Selector: +sharedInstance
  static KMVDiskArbiter& sharedInstance();

  /// A registry with empty lists, two queues and a session of its own, not listening to anything.
  /// Hosts use `sharedInstance`.
  /// Failure: destroying it before the platform has answered its last command stops the process.
  /// Selector: init
  KMVDiskArbiter();
  ~KMVDiskArbiter() override;
  KMVDiskArbiter(const KMVDiskArbiter&) = delete;
  KMVDiskArbiter& operator=(const KMVDiskArbiter&) = delete;

  /// Records the volumes mounted now and begins to listen; the platform then reports every disk that exists,
  /// on the arbiter queue.
  /// Idempotent for the whole process: later calls, on any registry, do nothing.
  /// Failure: the first call on a registry that is not the shared one stops the process.
  /// Selector: startArbiter
  void startArbiter();

  /// A snapshot of the present drives, by mount URL.
  /// Empty before `startArbiter`.
  /// Takes the asset queue.
  /// Selector: mountedDictionaries
  kmv::MountedDictionaries mountedDictionaries() const;

  /// A snapshot of the descriptions of disks that could be mounted but are not, in order of insertion.
  /// Takes the asset queue.
  /// Selector: unmountedDictionaries
  UnmountedDictionaries unmountedDictionaries() const;

  // --- The lists, as the platform's events change them; hosts may call them too. ---

  /// Registers the disk that `description` describes.
  /// A mounted volume joins the present drives, is shown to the listeners and announced later on the main
  /// queue; a disk that could be mounted joins the unmounted list; anything else is ignored.
  ///
  /// Returns the drive registered under that mount URL: the present one, untouched, when there was one.
  /// Null for what is not mounted, for what lacks "DAVolumeMountable" (its presence counts, not its value),
  /// and, on purpose, for a volume of kind "odaudf", which is registered but never announced.
  /// Thread: any; a writer.
  /// Listeners run on the calling thread, outside all locks.
  /// Selector: addDiskWithRepresentationToTheList:
  Drive addDiskWithRepresentationToTheList(const kmv::DictionarySnapshot& description);

  /// Removes the drive under `url`, standardised or as it stands, and announces it later on the main queue
  /// with a copy of the drive.
  /// Nothing happens when there is none.
  /// Thread: any; a writer.
  /// Selector: removeDiskAtURLFromTheList:
  void removeDiskAtURLFromTheList(const kmv::URL& url);

  /// Removes the first drive whose "driveUUIDKey" is exactly `uuid` and announces it on the calling thread
  /// with a copy of the drive.
  /// OBSERVERS RUN WHILE THE WRITERS' SEMAPHORE IS HELD, on purpose: they must not call a writer.
  /// Thread: any; a writer.
  /// Selector: removeDiskWithUUIDFromTheList:
  void removeDiskWithUUIDFromTheList(std::string_view uuid);

  /// True when `url` is the mount URL of a present drive and something exists at its path.
  /// Asks the file system only for the mount URLs of present drives; a dead server can block that question.
  /// Selector: rootVolumeURLStillExists:
  bool rootVolumeURLStillExists(const kmv::URL& url) const;

  /// Handles a changed description: a known unmounted disk was mounted, a present drive was unmounted, or it
  /// was renamed (path and name changed).
  /// Every other change is ignored.
  /// Thread: the arbiter queue.
  /// Selector: diskDidChangeWithDictionary:withChangedKeys:
  void diskDidChangeWithDictionary(const kmv::DictionarySnapshot& description,
                                   const kmv::ChangedKeys& changedKeys);

  /// Sets "driveUUIDKey" to the canonical text of "DAVolumeUUID"; leaves `drive` unchanged when it has none.
  /// Takes no lock.
  /// Selector: discoverUUIDForArbiterDictionary:
  void discoverUUIDForArbiterDictionary(const Drive& drive) const;

  // --- Whose drive is this? ---

  /// The drive that holds the item at `url` or, when there is no such item, the nearest folder above it.
  /// A volume that the registry has not heard of yet is registered on the spot, and announced as usual.
  /// Null when the place is on no drive, and for a volume of kind "odaudf" that was not registered before.
  /// Before `startArbiter` there is no list that could take the volume, on purpose: each call then makes and
  /// announces another drive, which no list holds and nothing keeps up to date. Look up after the start.
  /// Thread: any but the arbiter queue, for which it may wait: there, an unregistered volume stops the
  /// process with a message.
  /// Asks the file system for the path, outside every lock.
  /// Failure: throws `kmv::Exception` named "Invalid URL" for no URL, and when none of 100 attempts, each one
  /// folder higher, finds a volume.
  /// Selector: findRootMountDictionaryForURL:
  Drive findRootMountDictionaryForURL(const std::optional<kmv::URL>& url);

  /// The "DAVolumePath" of that drive.
  /// Thread and failure: as `findRootMountDictionaryForURL`.
  /// Selector: findRootDriveURLForPathURL:
  std::optional<kmv::URL> findRootDriveURLForPathURL(const std::optional<kmv::URL>& url);

  /// The present drive of the volume with this root; null when there is none.
  /// Takes the asset queue.
  /// Selector: findRootMountDictionaryForRootURL:
  Drive findRootMountDictionaryForRootURL(const kmv::URL& rootURL) const;

  /// The standardised root of the volume that holds the item at `url`, if it exists; never asks the registry
  /// and never tries enclosing folders.
  /// Selector: +volumeRootForPathAtURL:
  static std::optional<kmv::URL> volumeRootForPathAtURL(const std::optional<kmv::URL>& url);

  /// The whole text of the file ".OrvaneProductsUUID.orv" in the root of the drive that holds `url`,
  /// untrimmed; none when there is no such regular file, or when it is empty or larger than 64 KiB.
  /// Thread and failure as `findRootMountDictionaryForURL`, but no URL gives none.
  /// Selector: uuidFromOrvaneFileForDriveRepresentedByURL:
  std::optional<std::string> uuidFromOrvaneFileForDriveRepresentedByURL(const std::optional<kmv::URL>& url);

  /// The "driveUUIDKey" of the drive mounted at "/".
  /// Takes the asset queue.
  /// Selector: uuidForOperatingSystemDrive
  std::optional<std::string> uuidForOperatingSystemDrive() const;

  /// Gives the first drive whose "DAVolumePath" equals `url` (nothing is standardised) a UUID and announces
  /// the change on the calling thread.
  /// False when there is no such drive, or an argument is missing.
  /// Thread: any; a writer.
  /// Selector: updateUUIDForDictionaryWithURL:toUUID:
  bool updateUUIDForDictionaryWithURL(const std::optional<kmv::URL>& url,
                                      std::optional<std::string_view> toUUID);

  /// The "DAVolumePath" of the first drive whose "driveUUIDKey" is exactly `uuid`.
  /// Takes the asset queue.
  /// Selector: mountURLForDriveWithUUID:
  std::optional<kmv::URL> mountURLForDriveWithUUID(std::string_view uuid) const;

  /// The platform's present description of the volume mounted exactly at `path`; null when there is none.
  /// The lists stay as they are.
  /// May wait a moment for the platform.
  /// Selector: forceReadDetailsOfDriveMountedAtPath:
  kmv::DictionarySnapshot forceReadDetailsOfDriveMountedAtPath(std::string_view path) const;

  // --- The drives as volume records of the maker's data framework ---

  /// Calls `didFindVolume` once for each present drive, in ascending order of their URLs, on the calling
  /// thread and outside every lock.
  /// The walk ends when it sets `stop`.
  /// Selector: enumerateIOVolumes(didFindVolume:)
  void enumerateIOVolumes(const std::function<void(const IOVolume& volume, bool& stop)>& didFindVolume) const;

  /// The record of the volume that holds the item at `forUrl`; none when there is no such item or no drive.
  /// Thread: as `findRootMountDictionaryForURL`, but nothing is thrown.
  /// Selector: rootVolume(forUrl:)
  std::optional<IOVolume> rootVolume(const kmv::URL& forUrl);

  // --- Commands: carried out by the platform, answered asynchronously on the arbiter queue. ---

  /// Asks the platform to unmount the volume mounted exactly at `url`, without force: a volume in use is
  /// refused.
  /// True when the request was made; false when there is no such volume.
  /// A volume that went is announced as removed (one that is at once mounted there again, or was one of two
  /// mounts of the same volume there, is not: nothing has changed then), a refusal with
  /// `kDiskEjectionRejected` (see `DiskUnmountCallback`).
  /// Thread: any; returns without waiting for the volume.
  /// Selector: unmountVolumeAtRootURL:
  bool unmountVolumeAtRootURL(const kmv::URL& url);

  /// Asks the platform to give the volume mounted exactly at `url` a new name.
  /// The answer is `kDiskArbiterRenameSucceeded` or `kDiskArbiterRenameFailed` (see `DiskRenameCallback`);
  /// where there is no such volume, nothing happens and nothing is announced.
  /// What becomes of the drive's mount point is announced like any other change.
  /// Thread: any; returns without waiting for the volume.
  /// Selector: renameDriveWithRootURL:withNewName:
  void renameDriveWithRootURL(const kmv::URL& url, std::string_view withNewName);

  // --- Listeners ---

  /// Adds a listener; idempotent.
  /// Waits for the arbiter queue.
  /// Selector: addAdditionalInformationListener:
  void addAdditionalInformationListener(const Listener& listener);
  /// Removes a listener; does nothing when it is not registered.
  /// Waits for the arbiter queue.
  /// Selector: removeAdditionalInformationListener:
  void removeAdditionalInformationListener(const Listener& listener);

  // --- Properties: plain accessors. The lists are the live ones, not copies. Setting null stops the process with
  // --- a message, but for the session and the present drives; a null listener in the set is skipped. ---

  /// The platform's session; lives as long as the process unless a host sets another, which it then owns.
  kmv::DiskArbitrationSession* diskArbitrationSession() const;
  void setDiskArbitrationSession(kmv::DiskArbitrationSession* session);

  /// The mounted drives by standardised mount URL; null until `startArbiter`.
  /// A replaced table and its drives are kept as long as the registry, since readers may still use them.
  std::shared_ptr<kmv::PresentDriveTable> presentDiskDictionaries() const;
  void setPresentDiskDictionaries(std::shared_ptr<kmv::PresentDriveTable> table);

  /// Bare descriptions of the disks that could be mounted but are not.
  std::shared_ptr<kmv::UnmountedDiskList> unmountedDiskDictionaries() const;
  void setUnmountedDiskDictionaries(std::shared_ptr<kmv::UnmountedDiskList> list);

  /// The queue of the platform's callbacks; guards the listeners.
  /// Label ends in ".drive.diskarbiter".
  std::shared_ptr<kmv::SerialQueue> arbiterQueue() const;
  void setArbiterQueue(std::shared_ptr<kmv::SerialQueue> queue);

  /// Volumes mounted before the registry started that were not registered since.
  /// By the library's contract only a registration takes an entry off: that of a volume which went before it was
  /// registered stays, so the list need not become empty, and whatever is mounted there next is told as mounted
  /// before the start.
  /// A host that waits for the present volumes asks `forceReadDetailsOfDriveMountedAtPath` which entries are still
  /// mounted.
  std::shared_ptr<kmv::LiveArray<kmv::URL>> disksAlreadyMountedAtInit() const;
  void setDisksAlreadyMountedAtInit(std::shared_ptr<kmv::LiveArray<kmv::URL>> urls);

  /// The mount URLs of the present drives.
  std::shared_ptr<kmv::LiveSet<kmv::URL>> volumeURLsCurrentlyMounted() const;
  void setVolumeURLsCurrentlyMounted(std::shared_ptr<kmv::LiveSet<kmv::URL>> urls);

  /// The writers' lock: 8 units, all of which a writer holds.
  std::shared_ptr<kmv::Semaphore> readerWriterSemaphore() const;
  void setReaderWriterSemaphore(std::shared_ptr<kmv::Semaphore> semaphore);

  /// The queue that guards the lists, used synchronously.
  /// Label ends in ".drive.diskarbiter.assetmutex".
  std::shared_ptr<kmv::SerialQueue> assetMutexQueue() const;
  void setAssetMutexQueue(std::shared_ptr<kmv::SerialQueue> queue);

  /// The listeners, in the order in which they were added.
  /// The misspelling of the name is intended.
  std::shared_ptr<kmv::LiveSet<Listener>> informationProtcolClasses() const;
  void setInformationProtcolClasses(std::shared_ptr<kmv::LiveSet<Listener>> listeners);

 private:
  struct Properties;
  std::unique_ptr<Properties> properties_;
};
