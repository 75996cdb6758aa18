// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/NetServiceBrowser.h>

#include <string>
#include <utility>

#include "platform/ChildProcess.h"
#include "platform/SystemInformation.h"

namespace kmv {

/// The kernel's version. Immutable: any thread.
class LinuxSystemInformation final : public SystemInformation {
 public:
  OperatingSystemVersion operatingSystemVersion() override;
};

class LinuxChildProcess final : public ChildProcess {
 public:
  /// `root` is put before the places of programs; empty for the machine's own.
  explicit LinuxChildProcess(std::string root) : root_(std::move(root)) {}
  Result run(const Request& request) override;
  bool exists(const std::string& program) override;

 private:
  std::string root_;
};

/// For a process that browses no network.
class NoServiceBrowser final : public NetServiceBrowser {
 public:
  void setIncludesPeerToPeer(bool) override {}
  void setDelegate(NetServiceBrowserDelegate*) override {}
  void searchForServicesOfType(std::string_view, std::string_view) override {}
};

}  // namespace kmv
