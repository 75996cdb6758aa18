// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/AtomicProperty.h>
#include <KMVDriveLibrary/Export.h>
#include <KMVDriveLibrary/Value.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>

class KMVRootDiskWrapper;

/// The place of one drive in the topology of its disk: what a whole disk, a partition, an APFS container and
/// an APFS volume have in common.
/// The registry's wrapper manager makes them; a drive dictionary holds its own under `kDiskWrapperKey`.
///
/// Owner:   held by `std::shared_ptr`.
///          Links upwards (to the whole disk, to the container) are strong, links downwards weak, so a
///          drive's part of the topology is released with its dictionary.
/// Threads: every property may be read and written on any thread.
class KMV_EXPORT KMVDiskBSDBaseWrapper : public kmv::Object,
                                         public std::enable_shared_from_this<KMVDiskBSDBaseWrapper> {
 public:
  /// The wrapper of `dictionary`, filed under that whole disk.
  /// Both may be null.
  /// Selector: initWithDictionary:withRootVolumeWrapper:
  KMVDiskBSDBaseWrapper(const kmv::DictionarySnapshot& dictionary,
                        std::shared_ptr<KMVRootDiskWrapper> withRootVolumeWrapper);
  ~KMVDiskBSDBaseWrapper() override;
  KMVDiskBSDBaseWrapper(const KMVDiskBSDBaseWrapper&) = delete;
  KMVDiskBSDBaseWrapper& operator=(const KMVDiskBSDBaseWrapper&) = delete;

  /// Takes name and unit from `dictionary`, which becomes the backing dictionary.
  /// The whole disk stays.
  /// Selector: updateWithArbiterDict:
  void updateWithArbiterDict(const kmv::DictionarySnapshot& dictionary);

  /// The BSD name as the dictionary has it, a text ("disk2s1") unless the dictionary is malformed; none when
  /// absent.
  std::optional<kmv::Value> bsdName() const { return bsdName_.get(); }
  void setBsdName(std::optional<kmv::Value> name) { bsdName_.set(std::move(name)); }

  /// The number of the whole disk, as the dictionary has it; none when absent.
  std::optional<kmv::Value> bsdUnit() const { return bsdUnit_.get(); }
  void setBsdUnit(std::optional<kmv::Value> unit) { bsdUnit_.set(std::move(unit)); }

  /// The whole disk.
  std::shared_ptr<KMVRootDiskWrapper> rootVolumeWrapper() const { return rootVolumeWrapper_.get(); }
  void setRootVolumeWrapper(std::shared_ptr<KMVRootDiskWrapper> root) {
    rootVolumeWrapper_.set(std::move(root));
  }

  /// The dictionary that this was last built or updated from; held weakly, so null once nobody else holds it.
  /// For drives that the registry files nobody does, on purpose: the live dictionary is the registry's.
  kmv::DictionarySnapshot backingDictionary() const { return backingDictionary_.get().lock(); }
  void setBackingDictionary(const kmv::DictionarySnapshot& dictionary) { backingDictionary_.set(dictionary); }

  std::string description() const override;

 protected:
  /// A wrapper without a dictionary: its maker sets name, unit and whole disk.
  KMVDiskBSDBaseWrapper();

 private:
  void readNames(const kmv::DictionarySnapshot& dictionary);

  kmv::AtomicProperty<std::optional<kmv::Value>> bsdName_;
  kmv::AtomicProperty<std::optional<kmv::Value>> bsdUnit_;
  kmv::AtomicProperty<std::shared_ptr<KMVRootDiskWrapper>> rootVolumeWrapper_;
  kmv::AtomicProperty<std::weak_ptr<const kmv::Dictionary>> backingDictionary_;
};
