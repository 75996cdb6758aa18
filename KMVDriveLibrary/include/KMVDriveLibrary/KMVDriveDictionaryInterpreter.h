// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Export.h>
#include <KMVDriveLibrary/Value.h>

/// Answers yes or no about a drive dictionary or description.
/// All comparisons are exact and case-sensitive; a missing key, or no dictionary at all (null), gives false.
/// Threads: every member may be called from any thread.
/// The questions about kinds need `KMVDiskArbiter::sharedInstance()` to have been called once: before that
/// the variable `kDAVolumeKindKey` is empty and they answer false.
class KMV_EXPORT KMVDriveDictionaryInterpreter {
 public:
  KMVDriveDictionaryInterpreter() = delete;

  /// "DAVolumeType" is exactly "MS-DOS (FAT32)".
  /// Selector: +doesDictionaryRepresentAFat32Volume:
  static bool doesDictionaryRepresentAFat32Volume(const kmv::Dictionary* dictionary);

  /// The system's version has major >= 10 and minor >= 12, and the volume's kind is "apfs".
  /// The two numbers are compared one by one, so version 11.0 gives false: intended.
  /// Selector: +doesDictionaryRepresentAnAppleFileSystemVolume:
  static bool doesDictionaryRepresentAnAppleFileSystemVolume(const kmv::Dictionary* dictionary);

  /// The I/O registry shows a child named "AppleAPFSContainer" under the disk's BSD device.
  /// Asks the I/O registry.
  /// Selector: +diskDictionaryRepresentsAppleFileSystemContainer:
  static bool diskDictionaryRepresentsAppleFileSystemContainer(const kmv::Dictionary* dictionary);

  /// The volume's kind contains "fuse" anywhere, or is "sanefs".
  /// What an exempted kind is spared from is the caller's decision.
  /// Selector: +dictionaryContainsExemptedVolumeKind:
  static bool dictionaryContainsExemptedVolumeKind(const kmv::Dictionary* dictionary);
};
