// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/DriveDictionary.h>
#include <KMVDriveLibrary/Export.h>
#include <KMVDriveLibrary/MountedDictionaries.h>
#include <KMVDriveLibrary/URL.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

namespace kmv {

/// Drives by mount URL, thread-safe: the registry's list of what is mounted.
///
/// Drives are indexed by the key and by their content (UUID, path, appearance time), so a look-up is no
/// linear scan.
/// The index follows changes of a drive's content.
/// Enumeration order: ascending order of the keys; "the first" means the first in this order.
/// Threads: every member may be called from any thread; none calls foreign code.
class KMV_EXPORT PresentDriveTable {
 public:
  using Drive = std::shared_ptr<DriveDictionary>;
  using Entry = std::pair<URL, Drive>;

  PresentDriveTable();
  ~PresentDriveTable();
  PresentDriveTable(const PresentDriveTable&) = delete;
  PresentDriveTable& operator=(const PresentDriveTable&) = delete;

  /// The drive under `key`; null when there is none.
  Drive find(const URL& key) const;
  /// Stores `drive` under `key` and replaces what was there.
  /// A null drive removes the entry.
  void set(const URL& key, Drive drive);
  /// False when there was no such entry.
  bool remove(const URL& key);

  std::size_t count() const;
  std::vector<Entry> snapshot() const;
  /// A snapshot of every drive's content, by key.
  MountedDictionaries copies() const;

  /// The first drive whose "driveUUIDKey" is exactly this text; null when there is none.
  Drive firstWithUUID(std::string_view driveUUID) const;
  /// The first drive whose "DAVolumePath" equals this URL; null when there is none.
  Drive firstWithVolumePath(const URL& path) const;
  /// The first drive that matches every criterion given: the canonical text of "DAVolumeUUID" (absent counts
  /// as the empty text), the "DAAppearanceTime" (absent counts as 0; compared as doubles).
  /// REQUIRES: at least one criterion.
  Drive firstMatching(std::optional<std::string_view> volumeUUID, std::optional<double> appearanceTime) const;

 private:
  class Core;
  std::shared_ptr<Core> core_;
};

}  // namespace kmv
