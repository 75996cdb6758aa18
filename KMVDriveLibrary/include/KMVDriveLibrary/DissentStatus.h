// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

/// The statuses under which the platform refuses a command: the number under "status" in the object of
/// "kDiskEjectionRejected".
/// Hosts should be ready for others: a platform may pass on numbers of its own.
namespace kmv::dissent {

/// The numbers of the platform that the vocabulary comes from: negative as signed 32-bit values.
constexpr std::int32_t code(std::uint32_t number) {
  return static_cast<std::int32_t>(0xF8DA0000U | number);
}

inline constexpr std::int32_t kError = code(1);        ///< it failed for a reason without a status of its own
inline constexpr std::int32_t kBusy = code(2);         ///< something on the volume is in use
inline constexpr std::int32_t kBadArgument = code(3);  ///< the volume cannot have that name
inline constexpr std::int32_t kExclusiveAccess = code(4);  ///< another program has exclusive access
inline constexpr std::int32_t kNoResources = code(5);      ///< this process can start no more work
inline constexpr std::int32_t kNotFound = code(6);         ///< the device or the mount point is gone
inline constexpr std::int32_t kNotMounted = code(7);       ///< the volume is not mounted there any more
inline constexpr std::int32_t kNotPermitted = code(8);     ///< the system forbids it
inline constexpr std::int32_t kNotPrivileged = code(9);    ///< this process lacks the privilege
inline constexpr std::int32_t kNotReady = code(0xA);       ///< not now: the device is not ready
inline constexpr std::int32_t kNotWritable = code(0xB);    ///< the volume is read-only
inline constexpr std::int32_t kUnsupported = code(0xC);    ///< this kind of volume cannot do it

}  // namespace kmv::dissent
