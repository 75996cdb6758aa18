// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/KMVAPFSContainerWrapper.h>
#include <KMVDriveLibrary/KMVAPFSVolumeWrapper.h>
#include <KMVDriveLibrary/KMVRootDiskWrapper.h>

#include <utility>

KMVAPFSVolumeWrapper::KMVAPFSVolumeWrapper(const kmv::DictionarySnapshot& dictionary,
                                           std::shared_ptr<KMVRootDiskWrapper> withRootVolumeWrapper,
                                           std::shared_ptr<KMVAPFSContainerWrapper> withParentContainer)
    : KMVDiskBSDBaseWrapper(dictionary, std::move(withRootVolumeWrapper)),
      parentContainerWrapper_(std::move(withParentContainer)) {}

KMVAPFSVolumeWrapper::~KMVAPFSVolumeWrapper() = default;

std::vector<std::shared_ptr<KMVAPFSVolumeWrapper>> KMVAPFSVolumeWrapper::arrayOfSiblingAPFSVolumes() {
  const auto container = parentContainerWrapper();
  if (container == nullptr) return {};
  return container->allChildAPFSVolumes(std::static_pointer_cast<KMVAPFSVolumeWrapper>(shared_from_this()));
}
