// SPDX-License-Identifier: MIT
#pragma once

#include <IOKit/IOKitLib.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/macos/CF.h"
#include "platform/macos/Values.h"

// Questions about entries of the platform's registry of devices. An entry may be withdrawn while a handle
// stands for it: then each of them finds nothing.

namespace kmv::macos {

/// The services that match, in the platform's order; none when the search failed. Takes over `matching`,
/// which may be null, in either case.
std::optional<std::vector<IOHandle>> servicesMatching(mach_port_t port, CFDictionaryRef matching);

std::vector<IOHandle> childrenOf(const IOHandle& entry);
/// A container on several disks, and a mirrored set, have several.
std::vector<IOHandle> parentsOf(const IOHandle& entry);

std::optional<std::uint64_t> numberOf(const IOHandle& entry);  ///< never given twice
std::string nameOf(const IOHandle& entry);
std::string pathOf(const IOHandle& entry);
std::optional<Value> propertyOf(const IOHandle& entry, const char* key);
/// Of the entry or of the first one above it that has it.
std::optional<Value> propertyAbove(const IOHandle& entry, const char* key);

}  // namespace kmv::macos
