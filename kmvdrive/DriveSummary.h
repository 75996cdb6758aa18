// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Value.h>

#include <string>

namespace kmv::tool {

/// What people want to see of a drive, each as text; empty where it is not known. Texts hold any bytes: make
/// them visible before they reach a terminal.
struct DriveSummary {
  std::string name;
  std::string kind;
  std::string size;
  std::string mountPoint;
  std::string device;
  std::string uuid;
  std::string flags;  ///< "removable,network"
};

DriveSummary summaryOf(const Dictionary& drive);

}  // namespace kmv::tool
