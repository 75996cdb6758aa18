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

/// What a probe came to.
struct ProbeResult {
  std::optional<SignatureFacts> facts;  ///< none when the node cannot be read, so that nothing is known
  bool isDeferred = false;  ///< another program has locked the disk, or no descriptor is left: to be retried
};

/// Reads what a device's first blocks say. Keeps the documented rule for probing block devices: a shared BSD lock on the
/// whole disk, or nothing is read. A partition that is not mounted is read through its disk, since an open partition
/// makes its deletion and the rereading of the partition table fail with EBUSY. Opens for reading only, since the end
/// of a writer makes udevd announce a change. Any thread; a sick device can keep it for ever.
ProbeResult probeDevice(const LinuxOptions& options, const ProbeRequest& request);

}  // namespace kmv
