// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/DriveDictionary.h>
#include <KMVDriveLibrary/Value.h>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>

namespace kmv::tool {

/// The last three are answers to commands that this process gave.
enum class DriveEvent {
  present,
  added,
  removed,
  changed,
  diskAdded,    ///< a disk that is not mounted
  diskRemoved,  ///< the same, or it was mounted
  ejectionRejected,
  renameSucceeded,
  renameFailed
};

/// Tracks the drives that the registry announces and tells what to show of it: what is there at the start as
/// present, later ones as added, no drive both, and every removal and change only of a drive that was shown.
///
/// REQUIRES: announcements, changes and removals come in the order in which the registry made them. One
/// thread.
class DriveLedger {
 public:
  using Drive = std::shared_ptr<DriveDictionary>;
  using Show = std::function<void(DriveEvent, const Dictionary& drive)>;

  explicit DriveLedger(Show show) : show_(std::move(show)) {}

  void announced(const Drive& drive);
  /// `contents` is what `drive` held when the change was announced.
  void changed(const Drive& drive, const DictionarySnapshot& contents);
  /// `contents` is the drive's last content.
  void removed(const DictionarySnapshot& contents);

  /// A command was answered. `contents` has the drive's URL and, of a refused unmount, "status"
  /// and "pid".
  void answered(DriveEvent event, const Dictionary& contents);

  /// The registry has announced what exists: shows every drive that is there, by its mount URL. Announcements
  /// from here on are of new drives.
  void settle();

 private:
  /// A removal carries a copy, not the drive, so drives are found by what only one of them has at a time: the
  /// mount URL and the time of appearance.
  using Key = std::pair<std::string, double>;
  static Key keyOf(const Dictionary& contents);
  void forget(std::multimap<Key, Drive>::iterator entry);

  Show show_;
  bool settled_ = false;
  std::multimap<Key, Drive> drives_;
  std::unordered_map<const DriveDictionary*, std::multimap<Key, Drive>::iterator> entries_;
};

}  // namespace kmv::tool
