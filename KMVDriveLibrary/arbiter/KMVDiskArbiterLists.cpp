// SPDX-License-Identifier: MIT
// The lists of present and unmounted drives: adding, removing, announcing.
#include <KMVDriveLibrary/DescriptionKeys.h>
#include <KMVDriveLibrary/KMVDiskArbiter.h>
#include <KMVDriveLibrary/KMVDriveKeys.h>
#include <KMVDriveLibrary/NotificationCenter.h>

#include <optional>
#include <string>
#include <utility>

#include "arbiter/Announcing.h"
#include "arbiter/Descriptions.h"
#include "arbiter/WriterLock.h"
#include "platform/Platform.h"

namespace {

using kmv::Dictionary;
using kmv::DictionarySnapshot;
using kmv::DriveDictionary;
using kmv::URL;

/// Registered and findable, but never announced, and its adding answers nothing.
constexpr char kSilentVolumeKind[] = "odaudf";

/// External, network and ejectable drives are removable, the latter two even when they are internal.
bool isRemovable(const Dictionary& description) {
  bool removable = false;
  if (const auto internal = description.boolValue(kmv::key::kDeviceInternal)) removable = !*internal;
  if (const auto network = description.boolValue(kmv::key::kVolumeNetwork)) removable = removable || *network;
  if (const auto ejectable = description.boolValue(kmv::key::kMediaEjectable))
    removable = removable || *ejectable;
  return removable;
}

std::optional<URL> volumePath(const Dictionary& contents) {
  return kmv::urlUnder(kmv::key::kVolumePath, contents);
}

bool isSilent(const Dictionary& description) {
  const std::string* kind = description.text(kmv::key::kVolumeKind);
  return kind != nullptr && *kind == kSilentVolumeKind;
}

/// The listeners see a copy that is discarded afterwards, while the list keeps the bare description: both
/// are intended, as is that the list is edited outside the asset queue.
void addUnmountedDisk(const KMVDiskArbiter& arbiter, const DictionarySnapshot& description) {
  const auto annotated = std::make_shared<DriveDictionary>(*description);
  for (const auto& listener : arbiter.informationProtcolClasses()->snapshot()) {
    if (listener != nullptr) listener->addInformationAboutUnmountedDiskDictionary(annotated);
  }
  arbiter.unmountedDiskDictionaries()->append(description);
}

/// Puts the new drive into the lists. REQUIRES: the writers' lock.
std::shared_ptr<DriveDictionary> storePresentDrive(const KMVDiskArbiter& arbiter, const URL& key,
                                                   const Dictionary& description) {
  Dictionary contents;
  contents.set(kDiskURLKey, key);
  contents.set(kDiskRemoveableKey, isRemovable(description));
  std::shared_ptr<DriveDictionary> drive;
  arbiter.assetMutexQueue()->sync([&] {
    arbiter.volumeURLsCurrentlyMounted()->add(key);
    contents.merge(description);  // the description's own path overwrites the standardised key: intended
    const auto path = volumePath(description);
    const bool prior = path && arbiter.disksAlreadyMountedAtInit()->remove(*path);
    contents.set(kDiskMountedPriorToApplicationInstance, prior);
    drive = std::make_shared<DriveDictionary>(std::move(contents));
    if (const auto present = arbiter.presentDiskDictionaries()) present->set(key, drive);
  });
  return drive;
}

}  // namespace

KMVDiskArbiter::Drive KMVDiskArbiter::addDiskWithRepresentationToTheList(
    const DictionarySnapshot& description) {
  if (description == nullptr) return nullptr;
  std::optional<URL> key;
  if (const auto path = volumePath(*description)) key = kmv::URLByStandardizingPath(*path);
  const auto present = presentDiskDictionaries();
  const auto known = [&] { return key && present != nullptr ? present->find(*key) : nullptr; };
  if (Drive drive = known()) return drive;  // outside the asset queue: the table is thread-safe itself
  // The presence of the key decides, not its value.
  const bool hasMountable = description->contains(kmv::key::kVolumeMountable);
  if (!key && hasMountable) addUnmountedDisk(*this, description);
  if (!key || !hasMountable) return nullptr;

  Drive drive;
  {
    kmv::WriterLock writer(*this);
    // Checked again under the lock: when two threads race to add a volume, it is registered and announced
    // once.
    if (Drive other = known()) return other;
    drive = storePresentDrive(*this, *key, *description);
    discoverUUIDForArbiterDictionary(drive);
  }
  // The drive is visible already and no lock is held: a listener may look anything up.
  for (const Listener& listener : informationProtcolClasses()->snapshot()) {
    if (listener != nullptr) listener->addInformationAboutDiskDictionary(drive);
  }
  if (isSilent(*description)) return nullptr;
  kmv::announceOnMainQueue(kDiskArbiterNewDiskDetectedNotification, drive);
  return drive;
}

void KMVDiskArbiter::removeDiskAtURLFromTheList(const URL& url) {
  std::optional<URL> key = kmv::URLByStandardizingPath(url);
  const auto present = presentDiskDictionaries();
  if (present == nullptr) return;
  kmv::WriterLock writer(*this);
  Drive found;
  assetMutexQueue()->sync([&] {
    found = present->find(*key);
    if (found != nullptr) return;
    found = present->find(url);
    if (found != nullptr) key = volumePath(*found->snapshot());
  });
  if (found == nullptr) return;
  assetMutexQueue()->sync([&] {
    if (!key) return;
    volumeURLsCurrentlyMounted()->remove(*key);
    present->remove(*key);
  });
  kmv::announceOnMainQueue(kDiskArbiterRemovedDiskDetectedNotification, found->snapshot());
}

void KMVDiskArbiter::removeDiskWithUUIDFromTheList(std::string_view uuid) {
  const auto present = presentDiskDictionaries();
  if (present == nullptr) return;
  kmv::WriterLock writer(*this);
  Drive found;
  assetMutexQueue()->sync([&] { found = present->firstWithUUID(uuid); });
  if (found == nullptr) return;
  assetMutexQueue()->sync([&] {
    const auto path = volumePath(*found->snapshot());
    if (!path) return;
    volumeURLsCurrentlyMounted()->remove(*path);
    present->remove(*path);
  });
  // POSTED ON THIS THREAD WHILE THE WRITERS' SEMAPHORE IS HELD: intended, unlike the removal by URL.
  kmv::NotificationCenter::defaultCenter().post(
      {std::string(kDiskArbiterRemovedDiskDetectedNotification), found->snapshot(), nullptr});
}

bool KMVDiskArbiter::rootVolumeURLStillExists(const URL& url) const {
  const URL key = kmv::URLByStandardizingPath(url);
  bool isMounted = false;
  assetMutexQueue()->sync([&] { isMounted = volumeURLsCurrentlyMounted()->contains(key); });
  // Outside the queue: may wait for the volume.
  return isMounted && kmv::Platform::current().files().itemKind(key.path()) != kmv::ItemKind::none;
}

void KMVDiskArbiter::discoverUUIDForArbiterDictionary(const Drive& drive) const {
  if (drive == nullptr) return;
  const DictionarySnapshot contents = drive->snapshot();
  if (const kmv::UUID* uuid = contents->uuid(kmv::key::kVolumeUUID)) drive->set(kDiskUUIDKey, uuid->string());
}
