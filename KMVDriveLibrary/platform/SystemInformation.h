// SPDX-License-Identifier: MIT
#pragma once

namespace kmv {

/// A version of the operating system; unknown components are 0.
struct OperatingSystemVersion {
  int major = 0;
  int minor = 0;
  int patch = 0;
};

/// Facts about the running system.
/// Every member may be called from any thread.
class SystemInformation {
 public:
  virtual ~SystemInformation() = default;
  virtual OperatingSystemVersion operatingSystemVersion() = 0;
};

}  // namespace kmv
