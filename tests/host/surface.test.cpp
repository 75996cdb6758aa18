// SPDX-License-Identifier: MIT
// What hosts compile and compare against: names, signatures and texts. A change that breaks this file breaks
// hosts.
#include "support/Testing.h"

namespace {

using namespace kmv;
using Arbiter = KMVDiskArbiter;
using Codex = CodexVirtualFileSystemWrapper;
using Container = KMVAPFSContainerWrapper;
using Gatherer = KMVExtendedAttributeGatherer;
using Interpreter = KMVDriveDictionaryInterpreter;
using Manager = KMVDriveWrapperManager;
using Monitor = KMVDriveActivityMonitor;
using Protocol = KMVDiskAdditionalInformationProtocol;
using Root = KMVRootDiskWrapper;
using Drive = std::shared_ptr<DriveDictionary>;
using Listener = std::shared_ptr<Protocol>;
using Bytes = std::uint64_t;
using Text = std::string;
using View = std::string_view;
template <typename T>
using Maybe = std::optional<T>;
template <typename T>
using Shared = std::shared_ptr<T>;

/// The type of a member function without its class; of a static one and a free function the pointer's type.
template <typename T>
struct Signature {
  using Type = T;
};
template <typename F, typename Class>
struct Signature<F Class::*> {
  using Type = F;
};

/// True when every function has exactly this signature. An overload or another name does not compile.
template <typename Expected, auto... functions>
inline constexpr bool pinned = (std::is_same_v<typename Signature<decltype(functions)>::Type, Expected> &&
                                ...);

/// Compiles when each of these exists and has no overload; what they take and return, other tests use.
template <auto...>
inline constexpr bool exist = true;

static_assert(
    pinned<void(), &Arbiter::startArbiter, &Codex::inspectVFSForLoadActivity, &Monitor::runDriveAnalysis,
           &Monitor::listenForApplicationDriveSpeedUpdates, &Monitor::pause, &Monitor::resume,
           &Monitor::requestUpdated, &MainQueue::run, &MainQueue::stop, &Semaphore::wait, &Semaphore::signal,
           &NotificationCenter::Registration::unregister>);
static_assert(pinned<void(View), &Arbiter::removeDiskWithUUIDFromTheList, &DriveDictionary::remove,
                     &Monitor::stopMonitoringAppDriveIOUpdatesFromSender>);
static_assert(pinned<void(View) const, &OrvaneLog::logDebug, &OrvaneLog::logInfo, &OrvaneLog::logError>);
static_assert(pinned<void(const Listener&), &Arbiter::addAdditionalInformationListener,
                     &Arbiter::removeAdditionalInformationListener>);
static_assert(pinned<void(Bytes, const URL&, View, bool), &Monitor::appBytesWereUpdatedOnDrive,
                     &Monitor::appBytesWereUpdatedOnFile>);
static_assert(
    pinned<void(Bytes, const URL&, View), &Monitor::appBytesWereReadOnDrive, &Monitor::appBytesWereReadOnFile,
           &Monitor::appBytesWereWrittenOnDrive, &Monitor::appBytesWereWrittenOnFile>);
static_assert(
    pinned<bool(const URL&) const, &Arbiter::rootVolumeURLStillExists, &Monitor::ioServicesIsTrackingDrive>);
static_assert(pinned<bool(const Drive&), &Protocol::addInformationAboutDiskDictionary,
                     &Protocol::addInformationAboutUnmountedDiskDictionary>);
static_assert(pinned<bool() const, &Codex::sizeIsCalculated, &SerialQueue::isCurrent>);
static_assert(pinned<bool (*)(const Dictionary*), &Interpreter::doesDictionaryRepresentAFat32Volume,
                     &Interpreter::doesDictionaryRepresentAnAppleFileSystemVolume,
                     &Interpreter::diskDictionaryRepresentsAppleFileSystemContainer,
                     &Interpreter::dictionaryContainsExemptedVolumeKind>);
static_assert(pinned<Manager::VolumeWrappers() const, &Manager::volumeWrappers, &Manager::allVolumeWrappers>);
static_assert(pinned<Root::Wrapper(const DictionarySnapshot&),
                     &Root::addPartitionRepresentationWithArbiterDict, &Root::createWrapperWithArbiterDict>);
static_assert(pinned<Maybe<std::int64_t> (*)(const URL&), &codexEstimatedHDESize, &codexDecodedSize>);
static_assert(pinned<void (*)(Disk*, void*), &NewDiskAppeared, &DiskDisappeared>);
static_assert(pinned<void (*)(Disk*, const Dictionary*, void*), &DiskUnmountCallback, &DiskRenameCallback>);
static_assert(pinned<URL() const, &URL::standardized, &URL::deletingLastPathComponent>);
static_assert(pinned<Text() const, &UUID::string, &URL::path, &URL::lastPathComponent>);
static_assert(
    exist<&Arbiter::sharedInstance, &Manager::sharedInstance, &Manager::shared, &Monitor::defaultMonitor,
          &NotificationCenter::defaultCenter, &mainQueue, &OrvaneLog::defaultLog,
          &CrossAppFileManager::defaultManager, &Arbiter::removeDiskAtURLFromTheList,
          &KMVDiskBSDBaseWrapper::updateWithArbiterDict, &Arbiter::diskDidChangeWithDictionary,
          &Arbiter::discoverUUIDForArbiterDictionary, &Arbiter::renameDriveWithRootURL, &Codex::updateWrapper,
          &Codex::setSizeUpdated, &Manager::codexVFSWrapper, &DriveDictionary::set, &NotificationCenter::post,
          &Arbiter::enumerateIOVolumes, &SerialQueue::async, &SerialQueue::sync, &SerialQueue::after,
          &Arbiter::unmountVolumeAtRootURL, &Arbiter::updateUUIDForDictionaryWithURL, &Codex::vfsIsReady,
          &Codex::urlIsInVirtualFileSystem, &Arbiter::mountedDictionaries, &Arbiter::unmountedDictionaries,
          &Arbiter::addDiskWithRepresentationToTheList, &Arbiter::findRootMountDictionaryForURL,
          &Arbiter::findRootMountDictionaryForRootURL, &Arbiter::findRootDriveURLForPathURL,
          &Arbiter::volumeRootForPathAtURL, &Arbiter::mountURLForDriveWithUUID,
          &Arbiter::uuidFromOrvaneFileForDriveRepresentedByURL, &Arbiter::uuidForOperatingSystemDrive,
          &Arbiter::forceReadDetailsOfDriveMountedAtPath, &DriveDictionary::snapshot, &Arbiter::rootVolume,
          &DriveDictionary::value, &Manager::codexVFSWrappers, &Root::findExistingWrapperForBSDName,
          &Root::determineAPFSContainerBSDNameForAPFSVolumeBSDName,
          &Container::addAPFSVolumeRepresentationWithArbiterDict, &Container::apfsVolumeWrapperForBSDName,
          &Codex::initWithRoot, &Codex::estimatedVFSSize, &Codex::vfsLastModifiedDate,
          &Codex::vfsFileAttributes, &Codex::getFileSizeOfItem, &bytesPerSecond, &bytesMoved,
          &Gatherer::ltfsAttributeNameForAttribute, &Gatherer::findLocationOfLTFSStartBlockAtLocation,
          &Gatherer::findValueOfExtendedAttribute, &DiskDescriptionChanged, &URLByStandardizingPath,
          &URL::fileURLWithPath, &URL::fromString, &UUID::fromString, &NotificationCenter::addObserver,
          &makeSerialQueue, &MainQueue::drain, &MainQueue::fileDescriptor, &hiddenMounts, &mountEvents>);
static_assert(std::is_base_of_v<KMVVolumePartitionWrapper, Container>);
static_assert(!std::is_base_of_v<KMVDiskBSDBaseWrapper, Root>);
static_assert(static_cast<int>(VirtualFileSystemType::codexHDE) == 2);
static_assert(dissent::kBusy == -119930878 && dissent::kUnsupported == -119930868);

/// True when `setter` takes what `getter` returns.
template <auto getter, auto setter>
inline constexpr bool property = false;
template <typename T, typename Class, T (Class::*getter)() const, void (Class::*setter)(T)>
inline constexpr bool property<getter, setter> = true;

static_assert(property<&Arbiter::diskArbitrationSession, &Arbiter::setDiskArbitrationSession> &&
              property<&Arbiter::presentDiskDictionaries, &Arbiter::setPresentDiskDictionaries> &&
              property<&Arbiter::unmountedDiskDictionaries, &Arbiter::setUnmountedDiskDictionaries> &&
              property<&Arbiter::arbiterQueue, &Arbiter::setArbiterQueue> &&
              property<&Arbiter::disksAlreadyMountedAtInit, &Arbiter::setDisksAlreadyMountedAtInit> &&
              property<&Arbiter::volumeURLsCurrentlyMounted, &Arbiter::setVolumeURLsCurrentlyMounted> &&
              property<&Arbiter::readerWriterSemaphore, &Arbiter::setReaderWriterSemaphore> &&
              property<&Arbiter::assetMutexQueue, &Arbiter::setAssetMutexQueue> &&
              property<&Arbiter::informationProtcolClasses, &Arbiter::setInformationProtcolClasses>);

TEST(SurfaceTest, TextsOfTheConstantsAreWhatHostsCompareWith) {
  const std::pair<View, View> texts[] = {
      {kDiskArbiterNewDiskDetectedNotification, "kDiskArbiterNewDiskDictionary"},
      {kDiskArbiterRemovedDiskDetectedNotification, "kDiskArbiterDiskDictionaryRemoved"},
      {kDiskArbiterChangedDiskDetectedNotification, "kDiskArbiterDictionaryChanged"},
      {kDiskEjectionRejected, "kDiskEjectionRejected"},
      {kDiskArbiterRenameSucceeded, "kDiskArbiterRenameSucceeded"},
      {kDiskArbiterRenameFailed, "kDiskArbiterRenameFailed"},
      {kDiskArbiterDriveActivityDidUpdateNotification, "kDiskArbiterDriveActivityDidUpdateNotification"},
      {kDiskLTOArbiterTapeKey, "DiskLTOArbiterTapeKey"},
      {kDiskVolumeName, "DAVolumeName"},
      {kDiskURLKey, "DAVolumePath"},
      {kDiskUUIDKey, "driveUUIDKey"},
      {kDiskRemoveableKey, "DAMediaRemovableActual"},
      {kDiskAppearanceTimeKey, "DAAppearanceTime"},
      {kDiskNetworkKey, "DAVolumeNetwork"},
      {kDiskOldURLKey, "driveOldURLKey"},
      {kDiskMountedPriorToApplicationInstance, "diskMountedPriorToApplicationInstance"},
      {kDiskWrapperKey, "kDiskWrapperKey"},
      {kDADeviceModel, "DADeviceModel"},
      {virtualFileSystemWrapperHasUpdated, "virtualFileSystemWrapperHasUpdated"},
  };
  for (const auto& [constant, text] : texts) EXPECT_EQ(constant, text);
  EXPECT_EQ(KMVDriveLibraryVersionNumber, 1.0);
  EXPECT_EQ(Text(reinterpret_cast<const char*>(KMVDriveLibraryVersionString)),
            "@(#)PROGRAM:KMVDriveLibrary  PROJECT:KMVDriveLibrary-1\n");
}

TEST(SurfaceTest, KeyVariablesAreEmptyUntilTheRegistryIsAskedFor) {
  const std::pair<KeyVariable*, View> variables[] = {{&kDAVolumeKindKey, "DAVolumeKind"},
                                                     {&kDAMediaBSDName, "DAMediaBSDName"},
                                                     {&kDAMediaBSDUnit, "DAMediaBSDUnit"},
                                                     {&kDAMediaContentKey, "DAMediaContent"}};
  for (const auto& [variable, text] : variables) EXPECT_FALSE(variable->value());
  for (int call = 0; call < 2; ++call) {  // every call fills them
    KMVDiskArbiter::sharedInstance();
    for (const auto& [variable, text] : variables) {
      EXPECT_EQ(variable->value(), text);
      variable->assign("something else");
    }
  }
}

}  // namespace
