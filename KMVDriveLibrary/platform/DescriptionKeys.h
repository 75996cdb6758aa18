// SPDX-License-Identifier: MIT
#pragma once

// The description vocabulary: the one language that crosses the seam. What each key means and where each
// backend reads it: docs/platforms.md. Keys that hosts know by a constant of their own (KMVDriveKeys.h) have
// the same text there.

namespace kmv::key {

inline constexpr char kVolumeKind[] = "DAVolumeKind";            // text
inline constexpr char kVolumeMountable[] = "DAVolumeMountable";  // boolean
inline constexpr char kVolumeName[] = "DAVolumeName";            // text
inline constexpr char kVolumeNetwork[] = "DAVolumeNetwork";      // boolean
inline constexpr char kVolumePath[] = "DAVolumePath";            // URL, a directory URL; only while mounted
inline constexpr char kVolumeType[] = "DAVolumeType";            // text
inline constexpr char kVolumeUUID[] = "DAVolumeUUID";            // UUID
inline constexpr char kMediaBSDName[] = "DAMediaBSDName";        // text
inline constexpr char kMediaBSDUnit[] = "DAMediaBSDUnit";  // integer, shared by a whole disk and its slices
inline constexpr char kMediaContent[] = "DAMediaContent";  // text
inline constexpr char kMediaEjectable[] = "DAMediaEjectable";  // boolean
inline constexpr char kMediaRemovable[] = "DAMediaRemovable";  // boolean
inline constexpr char kMediaSize[] = "DAMediaSize";            // integer, bytes
inline constexpr char kMediaWhole[] = "DAMediaWhole";          // boolean
inline constexpr char kDeviceInternal[] = "DADeviceInternal";  // boolean
inline constexpr char kDeviceModel[] = "DADeviceModel";        // text
inline constexpr char kAppearanceTime[] = "DAAppearanceTime";  // real, seconds since 2001-01-01 UTC

// The record in which a refused command says why.
inline constexpr char kDissenterStatus[] = "DAStatus";        // integer, see DissentStatus.h
inline constexpr char kDissenterProcessID[] = "DAProcessID";  // integer; absent when no process is known

}  // namespace kmv::key
