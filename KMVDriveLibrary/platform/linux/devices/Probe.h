// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/linux/LinuxOptions.h"
#include "platform/linux/devices/BlockDevices.h"

namespace kmv {

/// A device node whose first blocks are to be read. The ticket goes back with the answer.
struct ProbeRequest {
  BlockDevice device;
  std::string mountedKind;  ///< the type under which it is mounted; empty when it is not
  std::uint64_t ticket = 0;
};

/// Reads what a device's first blocks say; none when the node cannot be read, so that nothing is known. Opens
/// the device for reading only, since the end of a writer makes udevd announce a change. Any thread; a sick
/// device can keep it for ever.
std::optional<SignatureFacts> probeDevice(const LinuxOptions& options, const ProbeRequest& request);

}  // namespace kmv
