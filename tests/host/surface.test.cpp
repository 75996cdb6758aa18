// SPDX-License-Identifier: MIT
// What hosts compile and compare against: names, signatures and texts. A change that breaks this file breaks
// hosts.
#include <KMVDriveLibrary/KMVDriveLibrary.h>
#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <type_traits>

namespace {

/// True when the member exists with exactly this signature; `member` takes its address, so an overload or a
/// rename shows.
template <typename Signature, Signature member>
inline constexpr bool exists = true;  // it is, if this compiles: a template argument has an address

using Arbiter = KMVDiskArbiter;
using Drive = std::shared_ptr<kmv::DriveDictionary>;
using Listener = std::shared_ptr<KMVDiskAdditionalInformationProtocol>;
using kmv::DictionarySnapshot;
using kmv::URL;

static_assert(exists<Arbiter& (*)(), &Arbiter::sharedInstance>);
static_assert(exists<void (Arbiter::*)(), &Arbiter::startArbiter>);
static_assert(exists<kmv::MountedDictionaries (Arbiter::*)() const, &Arbiter::mountedDictionaries>);
static_assert(exists<std::vector<DictionarySnapshot> (Arbiter::*)() const, &Arbiter::unmountedDictionaries>);
static_assert(
    exists<Drive (Arbiter::*)(const DictionarySnapshot&), &Arbiter::addDiskWithRepresentationToTheList>);
static_assert(exists<void (Arbiter::*)(const URL&), &Arbiter::removeDiskAtURLFromTheList>);
static_assert(exists<void (Arbiter::*)(std::string_view), &Arbiter::removeDiskWithUUIDFromTheList>);
static_assert(exists<bool (Arbiter::*)(const URL&) const, &Arbiter::rootVolumeURLStillExists>);
static_assert(exists<void (Arbiter::*)(const DictionarySnapshot&, const kmv::ChangedKeys&),
                     &Arbiter::diskDidChangeWithDictionary>);
static_assert(exists<void (Arbiter::*)(const Drive&) const, &Arbiter::discoverUUIDForArbiterDictionary>);
using MaybeURL = std::optional<URL>;
using MaybeText = std::optional<std::string>;
static_assert(exists<Drive (Arbiter::*)(const MaybeURL&), &Arbiter::findRootMountDictionaryForURL>);
static_assert(exists<MaybeURL (Arbiter::*)(const MaybeURL&), &Arbiter::findRootDriveURLForPathURL>);
static_assert(exists<Drive (Arbiter::*)(const URL&) const, &Arbiter::findRootMountDictionaryForRootURL>);
static_assert(exists<MaybeURL (*)(const MaybeURL&), &Arbiter::volumeRootForPathAtURL>);
static_assert(
    exists<MaybeText (Arbiter::*)(const MaybeURL&), &Arbiter::uuidFromOrvaneFileForDriveRepresentedByURL>);
static_assert(exists<MaybeText (Arbiter::*)() const, &Arbiter::uuidForOperatingSystemDrive>);
static_assert(exists<bool (Arbiter::*)(const MaybeURL&, std::optional<std::string_view>),
                     &Arbiter::updateUUIDForDictionaryWithURL>);
static_assert(exists<MaybeURL (Arbiter::*)(std::string_view) const, &Arbiter::mountURLForDriveWithUUID>);
static_assert(exists<DictionarySnapshot (Arbiter::*)(std::string_view) const,
                     &Arbiter::forceReadDetailsOfDriveMountedAtPath>);
using Interpreter = KMVDriveDictionaryInterpreter;
using Question = bool (*)(const kmv::Dictionary*);
static_assert(exists<Question, &Interpreter::doesDictionaryRepresentAFat32Volume>);
static_assert(exists<Question, &Interpreter::doesDictionaryRepresentAnAppleFileSystemVolume>);
static_assert(exists<Question, &Interpreter::diskDictionaryRepresentsAppleFileSystemContainer>);
static_assert(exists<Question, &Interpreter::dictionaryContainsExemptedVolumeKind>);
static_assert(exists<void (Arbiter::*)(const std::function<void(const IOVolume&, bool&)>&) const,
                     &Arbiter::enumerateIOVolumes>);
static_assert(exists<std::optional<IOVolume> (Arbiter::*)(const URL&), &Arbiter::rootVolume>);
static_assert(exists<bool (Arbiter::*)(const URL&), &Arbiter::unmountVolumeAtRootURL>);
static_assert(exists<void (Arbiter::*)(const URL&, std::string_view), &Arbiter::renameDriveWithRootURL>);
static_assert(exists<void (Arbiter::*)(const Listener&), &Arbiter::addAdditionalInformationListener>);
static_assert(exists<void (Arbiter::*)(const Listener&), &Arbiter::removeAdditionalInformationListener>);

/// A property: its getter, and a setter that takes what the getter returns.
template <typename T, T (Arbiter::*getter)() const, void (Arbiter::*setter)(T)>
inline constexpr bool isProperty = true;

static_assert(isProperty<kmv::DiskArbitrationSession*, &Arbiter::diskArbitrationSession,
                         &Arbiter::setDiskArbitrationSession>);
static_assert(isProperty<std::shared_ptr<kmv::PresentDriveTable>, &Arbiter::presentDiskDictionaries,
                         &Arbiter::setPresentDiskDictionaries>);
static_assert(isProperty<std::shared_ptr<kmv::UnmountedDiskList>, &Arbiter::unmountedDiskDictionaries,
                         &Arbiter::setUnmountedDiskDictionaries>);
static_assert(
    isProperty<std::shared_ptr<kmv::SerialQueue>, &Arbiter::arbiterQueue, &Arbiter::setArbiterQueue>);
static_assert(isProperty<std::shared_ptr<kmv::LiveArray<URL>>, &Arbiter::disksAlreadyMountedAtInit,
                         &Arbiter::setDisksAlreadyMountedAtInit>);
static_assert(isProperty<std::shared_ptr<kmv::LiveSet<URL>>, &Arbiter::volumeURLsCurrentlyMounted,
                         &Arbiter::setVolumeURLsCurrentlyMounted>);
static_assert(isProperty<std::shared_ptr<kmv::Semaphore>, &Arbiter::readerWriterSemaphore,
                         &Arbiter::setReaderWriterSemaphore>);
static_assert(
    isProperty<std::shared_ptr<kmv::SerialQueue>, &Arbiter::assetMutexQueue, &Arbiter::setAssetMutexQueue>);
static_assert(isProperty<std::shared_ptr<kmv::LiveSet<Listener>>, &Arbiter::informationProtcolClasses,
                         &Arbiter::setInformationProtcolClasses>);

using Manager = KMVDriveWrapperManager;
using Root = KMVRootDiskWrapper;
using Container = KMVAPFSContainerWrapper;
using MaybeView = std::optional<std::string_view>;
static_assert(exists<const std::shared_ptr<Manager>& (*)(), &Manager::shared>);
static_assert(exists<Manager& (*)(), &Manager::sharedInstance>);
static_assert(exists<Manager::VolumeWrappers (Manager::*)() const, &Manager::volumeWrappers>);
static_assert(exists<Manager::VolumeWrappers (Manager::*)() const, &Manager::allVolumeWrappers>);
static_assert(exists<Root::Wrapper (Root::*)(const DictionarySnapshot&),
                     &Root::addPartitionRepresentationWithArbiterDict>);
static_assert(
    exists<Root::Wrapper (Root::*)(const DictionarySnapshot&), &Root::createWrapperWithArbiterDict>);
static_assert(exists<Root::Wrapper (Root::*)(MaybeView) const, &Root::findExistingWrapperForBSDName>);
static_assert(exists<std::string (Root::*)(std::string_view) const,
                     &Root::determineAPFSContainerBSDNameForAPFSVolumeBSDName>);
static_assert(exists<Container::Volume (Container::*)(const DictionarySnapshot&),
                     &Container::addAPFSVolumeRepresentationWithArbiterDict>);
static_assert(
    exists<Container::Volume (Container::*)(MaybeView) const, &Container::apfsVolumeWrapperForBSDName>);
static_assert(exists<void (KMVDiskBSDBaseWrapper::*)(const DictionarySnapshot&),
                     &KMVDiskBSDBaseWrapper::updateWithArbiterDict>);
static_assert(std::is_base_of_v<KMVVolumePartitionWrapper, Container>);
static_assert(!std::is_base_of_v<KMVDiskBSDBaseWrapper, Root>);

using Codex = CodexVirtualFileSystemWrapper;
using CodexWrapper = std::shared_ptr<Codex>;
static_assert(exists<CodexWrapper (*)(const URL&), &Codex::initWithRoot>);
static_assert(exists<bool (*)(const URL&, const kmv::Dictionary&), &Codex::urlIsInVirtualFileSystem>);
static_assert(exists<bool (Codex::*)(), &Codex::vfsIsReady>);
static_assert(exists<bool (Codex::*)() const, &Codex::sizeIsCalculated>);
static_assert(exists<std::optional<std::int64_t> (Codex::*)() const, &Codex::estimatedVFSSize>);
static_assert(exists<std::optional<kmv::Date> (Codex::*)() const, &Codex::vfsLastModifiedDate>);
static_assert(exists<std::optional<kmv::Dictionary> (Codex::*)() const, &Codex::vfsFileAttributes>);
static_assert(exists<void (Codex::*)(bool), &Codex::updateWrapper>);
static_assert(exists<void (Codex::*)(), &Codex::inspectVFSForLoadActivity>);
static_assert(exists<std::int64_t (Codex::*)(const URL&), &Codex::getFileSizeOfItem>);
static_assert(exists<void (Codex::*)(std::function<void(std::int64_t)>), &Codex::setSizeUpdated>);
static_assert(static_cast<int>(VirtualFileSystemType::codexHDE) == 2);
static_assert(exists<void (Manager::*)(const URL&, kmv::Dictionary, bool, Manager::WrapperSupply),
                     &Manager::codexVFSWrapper>);
static_assert(exists<std::map<std::string, CodexWrapper> (Manager::*)() const, &Manager::codexVFSWrappers>);
static_assert(exists<std::optional<std::int64_t> (*)(const URL&), &kmv::codexEstimatedHDESize>);
static_assert(exists<std::optional<std::int64_t> (*)(const URL&), &kmv::codexDecodedSize>);

using Monitor = KMVDriveActivityMonitor;
using Tracker = KMVDriveIOActivityTracker;
using Bytes = std::uint64_t;
using ReportOfSide = void (Monitor::*)(Bytes, const URL&, std::string_view);
using Report = void (Monitor::*)(Bytes, const URL&, std::string_view, bool);
static_assert(exists<Monitor& (*)(), &Monitor::defaultMonitor>);
static_assert(exists<void (Monitor::*)(), &Monitor::runDriveAnalysis>);
static_assert(exists<bool (Monitor::*)(const URL&) const, &Monitor::ioServicesIsTrackingDrive>);
static_assert(exists<Report, &Monitor::appBytesWereUpdatedOnDrive>);
static_assert(exists<Report, &Monitor::appBytesWereUpdatedOnFile>);
static_assert(exists<ReportOfSide, &Monitor::appBytesWereReadOnDrive>);
static_assert(exists<ReportOfSide, &Monitor::appBytesWereReadOnFile>);
static_assert(exists<ReportOfSide, &Monitor::appBytesWereWrittenOnDrive>);
static_assert(exists<ReportOfSide, &Monitor::appBytesWereWrittenOnFile>);
static_assert(
    exists<void (Monitor::*)(std::string_view), &Monitor::stopMonitoringAppDriveIOUpdatesFromSender>);
static_assert(exists<void (Monitor::*)(), &Monitor::listenForApplicationDriveSpeedUpdates>);
static_assert(exists<void (Tracker::*)(const Tracker::Sample&, const URL&), &Tracker::updateStats>);
static_assert(exists<std::optional<double> (*)(const KMVDriveActivityDelta&), &kmv::bytesPerSecond>);

using Protocol = KMVDiskAdditionalInformationProtocol;
static_assert(exists<bool (Protocol::*)(const Drive&), &Protocol::addInformationAboutDiskDictionary>);
static_assert(
    exists<bool (Protocol::*)(const Drive&), &Protocol::addInformationAboutUnmountedDiskDictionary>);

static_assert(std::is_same_v<decltype(NewDiskAppeared), void(kmv::Disk*, void*)>);
static_assert(std::is_same_v<decltype(DiskDisappeared), void(kmv::Disk*, void*)>);
static_assert(
    std::is_same_v<decltype(DiskDescriptionChanged), void(kmv::Disk*, const kmv::ChangedKeys*, void*)>);

static_assert(std::is_same_v<decltype(DiskUnmountCallback), void(kmv::Disk*, const kmv::Dictionary*, void*)>);
static_assert(std::is_same_v<decltype(DiskRenameCallback), decltype(DiskUnmountCallback)>);
static_assert(kmv::dissent::kBusy == -119930878 && kmv::dissent::kUnsupported == -119930868);

static_assert(exists<URL (*)(const URL&), &kmv::URLByStandardizingPath>);
static_assert(exists<URL (URL::*)() const, &URL::standardized>);
static_assert(exists<URL (*)(std::string_view, bool), &URL::fileURLWithPath>);
static_assert(exists<std::optional<URL> (*)(std::string_view), &URL::fromString>);
static_assert(exists<std::optional<kmv::UUID> (*)(std::string_view), &kmv::UUID::fromString>);
static_assert(exists<std::string (kmv::UUID::*)() const, &kmv::UUID::string>);

static_assert(exists<DictionarySnapshot (kmv::DriveDictionary::*)() const, &kmv::DriveDictionary::snapshot>);
static_assert(exists<std::optional<kmv::Value> (kmv::DriveDictionary::*)(std::string_view) const,
                     &kmv::DriveDictionary::value>);
static_assert(
    exists<void (kmv::DriveDictionary::*)(std::string_view, kmv::Value), &kmv::DriveDictionary::set>);
static_assert(exists<void (kmv::DriveDictionary::*)(std::string_view), &kmv::DriveDictionary::remove>);

using Center = kmv::NotificationCenter;
static_assert(exists<Center& (*)(), &Center::defaultCenter>);
static_assert(
    exists<Center::Registration (Center::*)(std::optional<std::string_view>, Center::Observer, const void*),
           &Center::addObserver>);
static_assert(exists<void (Center::*)(const kmv::Notification&), &Center::post>);
static_assert(exists<void (Center::Registration::*)(), &Center::Registration::unregister>);

static_assert(exists<kmv::MainQueue& (*)(), &kmv::mainQueue>);
static_assert(exists<std::shared_ptr<kmv::SerialQueue> (*)(std::string), &kmv::makeSerialQueue>);
static_assert(exists<void (kmv::SerialQueue::*)(kmv::SerialQueue::Task), &kmv::SerialQueue::async>);
static_assert(exists<void (kmv::SerialQueue::*)(kmv::TaskReference), &kmv::SerialQueue::sync>);
static_assert(exists<void (kmv::SerialQueue::*)(std::chrono::nanoseconds, kmv::SerialQueue::Task),
                     &kmv::SerialQueue::after>);
static_assert(exists<bool (kmv::SerialQueue::*)() const, &kmv::SerialQueue::isCurrent>);
static_assert(exists<void (kmv::MainQueue::*)(), &kmv::MainQueue::run>);
static_assert(exists<void (kmv::MainQueue::*)(), &kmv::MainQueue::stop>);
static_assert(exists<std::size_t (kmv::MainQueue::*)(), &kmv::MainQueue::drain>);
static_assert(exists<int (kmv::MainQueue::*)(), &kmv::MainQueue::fileDescriptor>);
static_assert(exists<void (kmv::Semaphore::*)(), &kmv::Semaphore::wait>);
static_assert(exists<void (kmv::Semaphore::*)(), &kmv::Semaphore::signal>);
static_assert(exists<std::vector<kmv::HiddenMount> (*)(), &kmv::hiddenMounts>);

static_assert(exists<OrvaneLog& (*)(), &OrvaneLog::defaultLog>);
static_assert(exists<void (OrvaneLog::*)(std::string_view) const, &OrvaneLog::logDebug>);
static_assert(exists<void (OrvaneLog::*)(std::string_view) const, &OrvaneLog::logInfo>);
static_assert(exists<void (OrvaneLog::*)(std::string_view) const, &OrvaneLog::logError>);

TEST(SurfaceTest, TextsOfTheConstantsAreWhatHostsCompareWith) {
  const std::pair<std::string_view, std::string_view> texts[] = {
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
}

TEST(SurfaceTest, KeyVariablesAreEmptyUntilTheRegistryIsAskedFor) {
  kmv::KeyVariable* const variables[] = {&kDAVolumeKindKey, &kDAMediaBSDName, &kDAMediaBSDUnit,
                                         &kDAMediaContentKey};
  for (const auto* variable : variables) EXPECT_FALSE(variable->value());
  KMVDiskArbiter::sharedInstance();
  EXPECT_EQ(kDAVolumeKindKey.value(), "DAVolumeKind");
  EXPECT_EQ(kDAMediaBSDName.value(), "DAMediaBSDName");
  EXPECT_EQ(kDAMediaBSDUnit.value(), "DAMediaBSDUnit");
  EXPECT_EQ(kDAMediaContentKey.value(), "DAMediaContent");
  kDAVolumeKindKey.assign("something else");
  KMVDiskArbiter::sharedInstance();  // fills them on every call
  EXPECT_EQ(kDAVolumeKindKey.value(), "DAVolumeKind");
}

TEST(SurfaceTest, VersionSymbolsSayOne) {
  EXPECT_EQ(KMVDriveLibraryVersionNumber, 1.0);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(KMVDriveLibraryVersionString)),
            "@(#)PROGRAM:KMVDriveLibrary  PROJECT:KMVDriveLibrary-1\n");
}

}  // namespace
