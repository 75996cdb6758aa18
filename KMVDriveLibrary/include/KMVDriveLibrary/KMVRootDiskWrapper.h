// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/AtomicProperty.h>
#include <KMVDriveLibrary/Export.h>
#include <KMVDriveLibrary/KMVVolumePartitionWrapper.h>
#include <KMVDriveLibrary/RequiredProperty.h>
#include <KMVDriveLibrary/Value.h>
#include <KMVDriveLibrary/WeakTable.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

/// One whole disk, by its BSD unit: everything with the unit's number is filed under it.
/// An APFS container stands under the unit of its own disk, and nothing links it to the partition that stores
/// it.
///
/// Owner:   held by `std::shared_ptr`, by every wrapper that is filed under it; released with the last one.
/// Threads: every property may be used on any thread.
///          Members that add wrappers are for the wrapper manager and run on its queue; called concurrently
///          elsewhere, a race can make two wrappers of one name.
class KMV_EXPORT KMVRootDiskWrapper : public kmv::Object,
                                      public std::enable_shared_from_this<KMVRootDiskWrapper> {
 public:
  using Wrapper = std::shared_ptr<KMVDiskBSDBaseWrapper>;
  using Partitions = kmv::WeakTable<KMVVolumePartitionWrapper>;

  /// Selector: initWithBSDUnit:
  explicit KMVRootDiskWrapper(std::optional<kmv::Value> bsdUnit);
  ~KMVRootDiskWrapper() override;
  KMVRootDiskWrapper(const KMVRootDiskWrapper&) = delete;
  KMVRootDiskWrapper& operator=(const KMVRootDiskWrapper&) = delete;

  /// The wrapper that represents `dictionary` from now on: the existing one of its name, updated, or a new
  /// one.
  /// One whose kind has changed keeps its class, on purpose.
  /// Selector: addPartitionRepresentationWithArbiterDict:
  Wrapper addPartitionRepresentationWithArbiterDict(const kmv::DictionarySnapshot& dictionary);

  /// A container for what the interpreter calls one; a volume, in its container, for what it calls an APFS
  /// volume; else a partition.
  /// A container that is missing is made for its volume, and filed; when another wrapper has its name, both
  /// coexist: intended.
  /// Asks the I/O registry.
  /// Selector: createWrapperWithArbiterDict:
  Wrapper createWrapperWithArbiterDict(const kmv::DictionarySnapshot& dictionary);

  /// The name of the container that holds the volume of this name, taken from the name alone: "disk3s1" gives
  /// "disk3".
  /// The beginning is always "di", whatever it was, on purpose.
  /// Selector: determineAPFSContainerBSDNameForAPFSVolumeBSDName:
  std::string determineAPFSContainerBSDNameForAPFSVolumeBSDName(std::string_view name) const;

  /// The first partition, container or volume in a container that has this name; null when there is none or
  /// `name` is none.
  /// Selector: findExistingWrapperForBSDName:
  Wrapper findExistingWrapperForBSDName(std::optional<std::string_view> name) const;

  /// The unit's number.
  std::optional<kmv::Value> bsdUnit() const { return bsdUnit_.get(); }
  void setBsdUnit(std::optional<kmv::Value> unit) { bsdUnit_.set(std::move(unit)); }

  /// The partitions and containers, held weakly; APFS volumes are only in their containers.
  /// Setting null stops the process with a message.
  std::shared_ptr<Partitions> tableOfPartitions() const { return tableOfPartitions_.get(); }
  void setTableOfPartitions(std::shared_ptr<Partitions> table) { tableOfPartitions_.set(std::move(table)); }

  std::string description() const override;

 private:
  kmv::AtomicProperty<std::optional<kmv::Value>> bsdUnit_;
  kmv::RequiredProperty<std::shared_ptr<Partitions>> tableOfPartitions_{
      "KMVRootDiskWrapper: tableOfPartitions", std::make_shared<Partitions>()};
};
