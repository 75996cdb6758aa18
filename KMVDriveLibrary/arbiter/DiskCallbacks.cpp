// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/DescriptionKeys.h>
#include <KMVDriveLibrary/DiskCallbacks.h>
#include <KMVDriveLibrary/KMVDiskArbiter.h>

#include "arbiter/Descriptions.h"

void NewDiskAppeared(kmv::Disk* disk, void* context) {
  const auto description = kmv::descriptionOf(disk);
  auto* arbiter = static_cast<KMVDiskArbiter*>(context);
  if (arbiter == nullptr || description == nullptr) return;
  arbiter->addDiskWithRepresentationToTheList(description);
}

void DiskDisappeared(kmv::Disk* disk, void* context) {
  const auto description = kmv::descriptionOf(disk);
  auto* arbiter = static_cast<KMVDiskArbiter*>(context);
  if (arbiter == nullptr || description == nullptr) return;

  if (const kmv::URL* path = description->url(kmv::key::kVolumePath)) {
    arbiter->removeDiskAtURLFromTheList(*path);
    return;
  }
  const double time = description->doubleValue(kmv::key::kAppearanceTime);
  if (arbiter->unmountedDiskDictionaries()->takeFirstWithAppearanceTime(time) != nullptr) return;
  if (const kmv::UUID* uuid = description->uuid(kmv::key::kVolumeUUID)) {
    arbiter->removeDiskWithUUIDFromTheList(uuid->string());
  }
}

void DiskDescriptionChanged(kmv::Disk* disk, const kmv::ChangedKeys* changedKeys, void* context) {
  const auto description = kmv::descriptionOf(disk);
  auto* arbiter = static_cast<KMVDiskArbiter*>(context);
  if (arbiter == nullptr || description == nullptr) return;
  arbiter->diskDidChangeWithDictionary(description,
                                       changedKeys == nullptr ? kmv::ChangedKeys{} : *changedKeys);
}
