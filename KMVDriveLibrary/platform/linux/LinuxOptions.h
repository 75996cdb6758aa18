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
  /// Whose mount table counts: "self", or the id of another process as text. Volumes and events are then
  /// those of that process's namespace; its table needs the right to look into it (ptrace). Commands are
  /// refused: a process unmounts in its own namespace only.
  std::string mountTableOf = "self";
  /// Put before every path that is asked: a mount point, or an item whose volume is looked up. Empty for the
  /// view of the process whose mount table counts.
  std::string viewRoot;
  std::string programRoot;  ///< put before the program paths of the library's contract; empty for the
                            ///< machine's own
  int netlinkBufferBytes = 8 << 20;  ///< the default of 208 KiB holds only some 250 events of a storm
  bool probing = true;               ///< read file-system signatures from device nodes that can be opened

  /// What stands before the paths that are asked. Another process's paths are those below its own root: the
  /// same text may name another volume here.
  std::string view() const {
    if (!viewRoot.empty() || mountTableOf == "self") return viewRoot;
    return procRoot + "/" + mountTableOf + "/root";
  }
};

}  // namespace kmv
