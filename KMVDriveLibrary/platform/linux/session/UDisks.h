// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace kmv {

/// The outcome of a request to the system's disk service.
struct UDisksReply {
  enum class Kind {
    done,
    unreachable,  ///< no such service, it does not know the device, or this build cannot speak to it
    badName,      ///< it cannot hold this name whole
    refused       ///< for the reason in `error`
  };
  Kind kind = Kind::unreachable;
  std::string error;  ///< the D-Bus error's name
};

// Both connect anew for each call and block, possibly until a user gave a password: for a worker's thread.

/// Unmounts the device from `mountPoint`; `unreachable` when the service would take it from another place.
UDisksReply unmountWithUDisks(const std::string& deviceNode, const std::string& mountPoint);

/// Names the file system on the device, mounted or not.
UDisksReply setLabelWithUDisks(const std::string& deviceNode, const std::string& label);

}  // namespace kmv
