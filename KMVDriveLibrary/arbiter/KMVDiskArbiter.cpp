// SPDX-License-Identifier: MIT
// The registry's lifetime, its properties and its listeners. The lists: KMVDiskArbiterLists.cpp; changes:
// KMVDiskArbiterChanges.cpp.
#include <KMVDriveLibrary/DescriptionKeys.h>
#include <KMVDriveLibrary/DiskCallbacks.h>
#include <KMVDriveLibrary/KMVDiskArbiter.h>
#include <KMVDriveLibrary/KMVDriveKeys.h>
#include <KMVDriveLibrary/KMVDriveWrapperManager.h>

#include <utility>

#include "arbiter/KMVDiskArbiterProperties.h"
#include "arbiter/PresentDisksTold.h"
#include "arbiter/WriterLock.h"
#include "base/Fatal.h"
#include "base/KeptForEver.h"
#include "platform/Platform.h"

namespace {

constexpr char kArbiterQueueLabel[] = "com.orvane.drive.diskarbiter";
constexpr char kAssetQueueLabel[] = "com.orvane.drive.diskarbiter.assetmutex";

}  // namespace

KMVDiskArbiter& KMVDiskArbiter::sharedInstance() {
  kDAVolumeKindKey.assign(kmv::key::kVolumeKind);  // on every call, before anything else
  kDAMediaBSDName.assign(kmv::key::kMediaBSDName);
  kDAMediaBSDUnit.assign(kmv::key::kMediaBSDUnit);
  kDAMediaContentKey.assign(kmv::key::kMediaContent);
  static auto* instance = new KMVDiskArbiter;
  return *instance;
}

KMVDiskArbiter::KMVDiskArbiter() : properties_(std::make_unique<Properties>()) {
  auto& platform = kmv::Platform::current();
  Properties& fields = *properties_;
  fields.unmountedDiskDictionaries.set(std::make_shared<kmv::UnmountedDiskList>());
  fields.disksAlreadyMountedAtInit.set(std::make_shared<kmv::LiveArray<kmv::URL>>());
  fields.informationProtcolClasses.set(std::make_shared<kmv::LiveSet<Listener>>());
  fields.volumeURLsCurrentlyMounted.set(std::make_shared<kmv::LiveSet<kmv::URL>>());
  fields.readerWriterSemaphore.set(std::make_shared<kmv::Semaphore>(kmv::kWriterUnits));
  fields.arbiterQueue.set(platform.queues().makeSerialQueue(kArbiterQueueLabel, kmv::QualityOfService::core));
  setAssetMutexQueue(platform.queues().makeSerialQueue(kAssetQueueLabel, kmv::QualityOfService::core));
  // The platform may call back as long as the process lives.
  fields.diskArbitrationSession.set(kmv::keptForEver(platform.makeDiskArbitrationSession()));
  diskArbitrationSession()->setQueue(arbiterQueue());
  addAdditionalInformationListener(KMVDriveWrapperManager::shared());  // the first of the listeners
}

KMVDiskArbiter::~KMVDiskArbiter() {
  if (properties_->commands.isOpen())
    kmv::fatal("KMVDiskArbiter: destroyed before the platform answered its last command");
}

void KMVDiskArbiter::startArbiter() {
  // One for the process: a second registry's call does nothing at all once this has run.
  static std::once_flag once;
  std::call_once(once, [this] {
    if (this != &sharedInstance())
      kmv::fatal(
          "KMVDiskArbiter: assertion failed: NO (startArbiter on a registry that is not the shared one)");
    setPresentDiskDictionaries(std::make_shared<kmv::PresentDriveTable>());
    const auto alreadyMounted = disksAlreadyMountedAtInit();
    for (kmv::URL& url : kmv::Platform::current().volumes().mountedVolumeURLs())
      alreadyMounted->append(std::move(url));
    diskArbitrationSession()->registerCallbacks(
        {NewDiskAppeared, DiskDisappeared, DiskDescriptionChanged, kmv::presentDisksTold}, this);
  });
}

kmv::MountedDictionaries KMVDiskArbiter::mountedDictionaries() const {
  kmv::MountedDictionaries copies;
  const auto present = presentDiskDictionaries();
  if (present == nullptr) return copies;
  assetMutexQueue()->sync([&] { copies = present->copies(); });
  return copies;
}

KMVDiskArbiter::UnmountedDictionaries KMVDiskArbiter::unmountedDictionaries() const {
  UnmountedDictionaries copies;
  const auto unmounted = unmountedDiskDictionaries();
  assetMutexQueue()->sync([&] { copies = unmounted->snapshot(); });
  return copies;
}

void KMVDiskArbiter::addAdditionalInformationListener(const Listener& listener) {
  const auto listeners = informationProtcolClasses();
  if (listener == nullptr || listeners->contains(listener)) return;
  arbiterQueue()->sync([&] { listeners->add(listener); });
}

void KMVDiskArbiter::removeAdditionalInformationListener(const Listener& listener) {
  const auto listeners = informationProtcolClasses();
  if (!listeners->contains(listener)) return;
  arbiterQueue()->sync([&] { listeners->remove(listener); });
}

std::shared_ptr<kmv::PresentDriveTable> KMVDiskArbiter::presentDiskDictionaries() const {
  return properties_->presentDiskDictionaries.get();
}
void KMVDiskArbiter::setPresentDiskDictionaries(std::shared_ptr<kmv::PresentDriveTable> value) {
  const kmv::MutexLock lock(properties_->settingForLookUps);
  properties_->keptForLookUps.add(value);
  properties_->presentForLookUps.store(value.get(), std::memory_order_release);
  properties_->presentDiskDictionaries.set(std::move(value));
}

std::shared_ptr<kmv::SerialQueue> KMVDiskArbiter::assetMutexQueue() const {
  return properties_->assetMutexQueue.get();
}
void KMVDiskArbiter::setAssetMutexQueue(std::shared_ptr<kmv::SerialQueue> value) {
  const kmv::MutexLock lock(properties_->settingForLookUps);
  properties_->assetMutexQueue.set(value);
  properties_->assetQueueForLookUps.store(value.get(), std::memory_order_release);
  properties_->keptForLookUps.add(std::move(value));
}

// Plain accessors; what each holds is said in the header.
#define KMV_PROPERTY(type, getter, setter)     \
  type KMVDiskArbiter::getter() const {        \
    return properties_->getter.get();          \
  }                                            \
  void KMVDiskArbiter::setter(type value) {    \
    properties_->getter.set(std::move(value)); \
  }

KMV_PROPERTY(kmv::DiskArbitrationSession*, diskArbitrationSession, setDiskArbitrationSession)
KMV_PROPERTY(std::shared_ptr<kmv::UnmountedDiskList>, unmountedDiskDictionaries, setUnmountedDiskDictionaries)
KMV_PROPERTY(std::shared_ptr<kmv::SerialQueue>, arbiterQueue, setArbiterQueue)
KMV_PROPERTY(std::shared_ptr<kmv::LiveArray<kmv::URL>>, disksAlreadyMountedAtInit,
             setDisksAlreadyMountedAtInit)
KMV_PROPERTY(std::shared_ptr<kmv::LiveSet<kmv::URL>>, volumeURLsCurrentlyMounted,
             setVolumeURLsCurrentlyMounted)
KMV_PROPERTY(std::shared_ptr<kmv::Semaphore>, readerWriterSemaphore, setReaderWriterSemaphore)
KMV_PROPERTY(std::shared_ptr<kmv::LiveSet<KMVDiskArbiter::Listener>>, informationProtcolClasses,
             setInformationProtcolClasses)

#undef KMV_PROPERTY
