// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Export.h>
#include <KMVDriveLibrary/KMVDiskBSDBaseWrapper.h>

#include <memory>
#include <utility>
#include <vector>

class KMVAPFSContainerWrapper;

/// One volume of an APFS container.
class KMV_EXPORT KMVAPFSVolumeWrapper : public KMVDiskBSDBaseWrapper {
 public:
  /// Selector: initWithDictionary:withRootVolumeWrapper:withParentContainer:
  KMVAPFSVolumeWrapper(const kmv::DictionarySnapshot& dictionary,
                       std::shared_ptr<KMVRootDiskWrapper> withRootVolumeWrapper,
                       std::shared_ptr<KMVAPFSContainerWrapper> withParentContainer);
  ~KMVAPFSVolumeWrapper() override;

  /// The other volumes of the container, in order of insertion; empty without a container.
  /// Those that have this one's name are left out.
  /// Selector: arrayOfSiblingAPFSVolumes
  std::vector<std::shared_ptr<KMVAPFSVolumeWrapper>> arrayOfSiblingAPFSVolumes();

  /// The container.
  std::shared_ptr<KMVAPFSContainerWrapper> parentContainerWrapper() const {
    return parentContainerWrapper_.get();
  }
  void setParentContainerWrapper(std::shared_ptr<KMVAPFSContainerWrapper> container) {
    parentContainerWrapper_.set(std::move(container));
  }

 private:
  kmv::AtomicProperty<std::shared_ptr<KMVAPFSContainerWrapper>> parentContainerWrapper_;
};
