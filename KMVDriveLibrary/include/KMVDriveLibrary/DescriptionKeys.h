// SPDX-License-Identifier: MIT
#pragma once

// The description vocabulary: the keys under which a platform describes a disk and its volume, and under
// which a drive dictionary therefore holds the same facts.
// This is the one list of them: backends write these keys, the library and hosts read them.
// Where each platform takes a value from: docs/platforms.md.
//
// A key that the platform cannot answer is absent.
// The registry's own keys, and the constants that the library's contract names for some of these, are in
// KMVDriveKeys.h.

namespace kmv::key {

// The volume.
/// Text: the file system's own identifier as it writes it, "56D3-366B" or a UUID.
inline constexpr char kVolumeIdentifier[] = "KMVVolumeIdentifier";
inline constexpr char kVolumeKind[] = "DAVolumeKind";            ///< text: file-system type, "ext4"
inline constexpr char kVolumeMountable[] = "DAVolumeMountable";  ///< boolean
inline constexpr char kVolumeName[] = "DAVolumeName";            ///< text: the label
inline constexpr char kVolumeNetwork[] = "DAVolumeNetwork";      ///< boolean
inline constexpr char kVolumePath[] = "DAVolumePath";            ///< URL, a directory URL; only while mounted
inline constexpr char kVolumeType[] = "DAVolumeType";            ///< text: the type in words
inline constexpr char kVolumeUUID[] = "DAVolumeUUID";            ///< UUID

// The medium.
inline constexpr char kMediaBlockSize[] = "DAMediaBlockSize";  ///< integer: bytes of a logical block
inline constexpr char kMediaBSDName[] = "DAMediaBSDName";      ///< text: "sda1", "disk4s2"
inline constexpr char kMediaBSDUnit[] = "DAMediaBSDUnit";  ///< integer: a whole disk and its slices share it
inline constexpr char kMediaContent[] = "DAMediaContent";  ///< text: the partition's type
inline constexpr char kMediaEjectable[] = "DAMediaEjectable";  ///< boolean
inline constexpr char kMediaName[] = "DAMediaName";            ///< text: the partition's label
inline constexpr char kMediaRemovable[] = "DAMediaRemovable";  ///< boolean
inline constexpr char kMediaSize[] = "DAMediaSize";            ///< integer: bytes
inline constexpr char kMediaUUID[] = "DAMediaUUID";            ///< UUID: the partition's
inline constexpr char kMediaWhole[] = "DAMediaWhole";          ///< boolean: a whole disk, not a slice
inline constexpr char kMediaWritable[] = "DAMediaWritable";    ///< boolean: false for a read-only medium

// The device.
inline constexpr char kDeviceInternal[] = "DADeviceInternal";  ///< boolean
inline constexpr char kDeviceModel[] = "DADeviceModel";        ///< text
/// Text: how it is connected. Linux: "USB", "SATA", "NVMe", "SD", "MMC", "FireWire", "SCSI", "Virtual".
inline constexpr char kDeviceProtocol[] = "DADeviceProtocol";
inline constexpr char kDeviceRevision[] = "DADeviceRevision";       ///< text: of its firmware
inline constexpr char kDeviceRotational[] = "KMVDeviceRotational";  ///< boolean: it turns
inline constexpr char kDeviceSerial[] = "KMVDeviceSerial";          ///< text
inline constexpr char kDeviceVendor[] = "DADeviceVendor";           ///< text

/// Real: seconds since 2001-01-01 00:00 UTC; given once per appearance of a device.
inline constexpr char kAppearanceTime[] = "DAAppearanceTime";

// The record in which a refused command says why.
inline constexpr char kDissenterStatus[] = "DAStatus";        ///< integer, see DissentStatus.h
inline constexpr char kDissenterProcessID[] = "DAProcessID";  ///< integer; absent when no process is known

}  // namespace kmv::key
