// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "platform/ChildProcess.h"
#include "platform/SystemInformation.h"

namespace kmv::macos {

class MacSystemInformation final : public SystemInformation {
 public:
  /// Programs that were built with old SDKs are told 10.16, as by the platform's own call.
  OperatingSystemVersion operatingSystemVersion() override;
};

/// Children get this process's environment as it is: the attribute tool does not look at the language.
class MacChildProcess final : public ChildProcess {
 public:
  Result run(const Request& request) override;
  bool exists(const std::string& program) override;
};

}  // namespace kmv::macos
