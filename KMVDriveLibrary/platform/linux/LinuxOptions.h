// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace kmv {

/// What the Linux backend is built on. The roots let a recorded machine, kept as plain folders, stand in for
/// the real one.
struct LinuxOptions {
  std::string procRoot = "/proc";
  std::string sysRoot = "/sys";
  std::string udevDataRoot = "/run/udev";  ///< holds "control" while udevd runs, and "data/bMAJOR:MINOR"
  std::string devRoot = "/dev";
  std::string viewRoot;  ///< put before the mount points that are looked at; empty for the process's own view
  std::string programRoot;  ///< put before the places of programs that the contract names; empty for the
                            ///< machine's own
  int netlinkBufferBytes = 8 << 20;  ///< the default of 208 KiB holds only some 250 events of a storm
  bool probing = true;               ///< read file-system signatures from device nodes that can be opened
};

}  // namespace kmv
