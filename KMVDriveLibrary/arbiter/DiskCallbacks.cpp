// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/DescriptionKeys.h>
#include <KMVDriveLibrary/DiskCallbacks.h>
#include <KMVDriveLibrary/KMVDiskArbiter.h>

#include <memory>

namespace {

kmv::DictionarySnapshot copyDescription(const kmv::Disk* disk) {
  if (disk == nullptr) return nullptr;
  auto description = disk->copyDescription();
  return description ? std::make_shared<const kmv::Dictionary>(std::move(*description)) : nullptr;
}

}  // namespace

void NewDiskAppeared(kmv::Disk* disk, void* context) {
  const auto description = copyDescription(disk);
  auto* arbiter = static_cast<KMVDiskArbiter*>(context);
  if (arbiter == nullptr || description == nullptr) return;
  arbiter->addDiskWithRepresentationToTheList(description);
}

void DiskDisappeared(kmv::Disk* disk, void* context) {
  const auto description = copyDescription(disk);
  auto* arbiter = static_cast<KMVDiskArbiter*>(context);
  if (arbiter == nullptr || description == nullptr) return;

  const kmv::URL* path = description->url(kmv::key::kVolumePath);
  if (path == nullptr) {
    const double time = description->doubleValue(kmv::key::kAppearanceTime);
    if (arbiter->unmountedDiskDictionaries()->takeFirstWithAppearanceTime(time) != nullptr) return;
  } else {
    arbiter->removeDiskAtURLFromTheList(*path);
    return;
  }
  if (const kmv::UUID* uuid = description->uuid(kmv::key::kVolumeUUID)) {
    arbiter->removeDiskWithUUIDFromTheList(uuid->string());
  }
}

void DiskDescriptionChanged(kmv::Disk* disk, const kmv::ChangedKeys* changedKeys, void* context) {
  const auto description = copyDescription(disk);
  auto* arbiter = static_cast<KMVDiskArbiter*>(context);
  if (arbiter == nullptr || description == nullptr) return;
  arbiter->diskDidChangeWithDictionary(description,
                                       changedKeys == nullptr ? kmv::ChangedKeys{} : *changedKeys);
}
