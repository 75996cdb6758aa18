// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/KMVAPFSContainerWrapper.h>
#include <KMVDriveLibrary/KMVRootDiskWrapper.h>

#include <algorithm>
#include <utility>

#include "topology/Names.h"

using kmv::topology::bearsName;

KMVAPFSContainerWrapper::~KMVAPFSContainerWrapper() = default;

KMVAPFSContainerWrapper::KMVAPFSContainerWrapper(const kmv::DictionarySnapshot& dictionary,
                                                 std::shared_ptr<KMVRootDiskWrapper> withRootVolumeWrapper)
    : KMVVolumePartitionWrapper(dictionary, std::move(withRootVolumeWrapper)) {}

KMVAPFSContainerWrapper::KMVAPFSContainerWrapper(std::shared_ptr<KMVRootDiskWrapper> rootVolumeWrapper,
                                                 std::optional<kmv::Value> withBSDNameToReserve,
                                                 std::optional<kmv::Value> withBSDUnitToRepresent)
    : KMVVolumePartitionWrapper(nullptr, std::move(rootVolumeWrapper)) {
  setBsdName(std::move(withBSDNameToReserve));
  setBsdUnit(std::move(withBSDUnitToRepresent));
}

KMVAPFSContainerWrapper::Volume KMVAPFSContainerWrapper::addAPFSVolumeRepresentationWithArbiterDict(
    const kmv::DictionarySnapshot& dictionary) {
  const auto name = kmv::topology::valueUnder(kDAMediaBSDName, dictionary);
  if (Volume known = apfsVolumeWrapperForBSDName(kmv::topology::textOf(name))) {
    known->updateWithArbiterDict(dictionary);
    return known;
  }
  auto made = std::make_shared<KMVAPFSVolumeWrapper>(
      dictionary, rootVolumeWrapper(), std::static_pointer_cast<KMVAPFSContainerWrapper>(shared_from_this()));
  tableOfChildAPFSVolumes()->add(made);
  return made;
}

KMVAPFSContainerWrapper::Volume KMVAPFSContainerWrapper::apfsVolumeWrapperForBSDName(
    std::optional<std::string_view> name) const {
  for (Volume& volume : allChildAPFSVolumes()) {
    if (bearsName(*volume, name)) return std::move(volume);
  }
  return nullptr;
}

std::vector<KMVAPFSContainerWrapper::Volume> KMVAPFSContainerWrapper::allChildAPFSVolumes() const {
  return tableOfChildAPFSVolumes()->allObjects();
}

std::vector<KMVAPFSContainerWrapper::Volume> KMVAPFSContainerWrapper::allChildAPFSVolumes(
    const Volume& excludingChildVolume) const {
  std::vector<Volume> volumes = allChildAPFSVolumes();
  if (excludingChildVolume == nullptr) return volumes;
  // By name, not by identity: every volume that bears it is left out.
  const auto name = excludingChildVolume->bsdName();
  std::erase_if(volumes,
                [&](const Volume& volume) { return bearsName(*volume, kmv::topology::textOf(name)); });
  return volumes;
}
