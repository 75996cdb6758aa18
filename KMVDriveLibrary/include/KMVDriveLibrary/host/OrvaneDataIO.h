// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/URL.h>

#include <cstdint>
#include <optional>

/// What a volume's medium is, as the maker's data framework tells them apart. This library finds solid state,
/// FUSE and generic only. The order is part of the contract.
enum class IOMediaKind { rotational, solidState, fuse, network, tape, generic };

/// The volume record of the maker's data framework, as far as this library fills it.
struct IOVolume {
  kmv::URL volumeURL;
  IOMediaKind mediaKind = IOMediaKind::generic;
  // Left empty by this library.
  std::optional<std::int64_t> capacity = std::nullopt;            ///< bytes
  std::optional<std::int64_t> availableCapacity = std::nullopt;   ///< bytes
  std::optional<std::int64_t> preferredBlockSize = std::nullopt;  ///< bytes
};
