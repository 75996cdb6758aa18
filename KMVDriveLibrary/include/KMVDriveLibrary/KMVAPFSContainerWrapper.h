// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Export.h>
#include <KMVDriveLibrary/KMVAPFSVolumeWrapper.h>
#include <KMVDriveLibrary/KMVVolumePartitionWrapper.h>
#include <KMVDriveLibrary/RequiredProperty.h>
#include <KMVDriveLibrary/WeakTable.h>

#include <memory>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

/// An APFS container disk, with the volumes in it.
class KMV_EXPORT KMVAPFSContainerWrapper : public KMVVolumePartitionWrapper {
 public:
  using Volume = std::shared_ptr<KMVAPFSVolumeWrapper>;
  using Volumes = kmv::WeakTable<KMVAPFSVolumeWrapper>;

  /// Selector: initWithDictionary:withRootVolumeWrapper:
  KMVAPFSContainerWrapper(const kmv::DictionarySnapshot& dictionary,
                          std::shared_ptr<KMVRootDiskWrapper> withRootVolumeWrapper);
  /// A container inferred from its volumes alone; it has no backing dictionary until its own description
  /// arrives.
  /// Selector: initWithRootVolumeWrapper:withBSDNameToReserve:withBSDUnitToRepresent:
  KMVAPFSContainerWrapper(std::shared_ptr<KMVRootDiskWrapper> rootVolumeWrapper,
                          std::optional<kmv::Value> withBSDNameToReserve,
                          std::optional<kmv::Value> withBSDUnitToRepresent);
  ~KMVAPFSContainerWrapper() override;

  /// The wrapper of this volume: the existing one of its name, updated, or a new one.
  /// Selector: addAPFSVolumeRepresentationWithArbiterDict:
  Volume addAPFSVolumeRepresentationWithArbiterDict(const kmv::DictionarySnapshot& dictionary);

  /// The first volume of this name; null when there is none or `name` is none.
  /// Selector: apfsVolumeWrapperForBSDName:
  Volume apfsVolumeWrapperForBSDName(std::optional<std::string_view> name) const;

  /// The volumes that are alive, in order of insertion.
  /// Selector: allChildAPFSVolumes
  std::vector<Volume> allChildAPFSVolumes() const;
  /// The same without those that have the name of `excludingChildVolume`; all of them for null.
  /// Selector: allChildAPFSVolumesExcludingChildVolume:
  std::vector<Volume> allChildAPFSVolumes(const Volume& excludingChildVolume) const;

  /// The volumes, held weakly.
  /// Setting null stops the process with a message.
  std::shared_ptr<Volumes> tableOfChildAPFSVolumes() const { return tableOfChildAPFSVolumes_.get(); }
  void setTableOfChildAPFSVolumes(std::shared_ptr<Volumes> table) {
    tableOfChildAPFSVolumes_.set(std::move(table));
  }

 private:
  kmv::RequiredProperty<std::shared_ptr<Volumes>> tableOfChildAPFSVolumes_{
      "KMVAPFSContainerWrapper: tableOfChildAPFSVolumes", std::make_shared<Volumes>()};
};
