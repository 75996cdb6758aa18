// SPDX-License-Identifier: MIT
#pragma once

#include "platform/linux/LinuxOptions.h"
#include "platform/linux/mounts/MountTable.h"
#include "support/TemporaryFolder.h"
#include "support/Testing.h"

namespace kmv::test {

/// A machine made of plain folders in the shape of /sys, udev's database and /proc. Gone with the object.
class FakeMachine {
 public:
  using Attributes = std::initializer_list<std::pair<const char*, std::string>>;

  FakeMachine() {
    std::filesystem::create_directory(root_ / "view");
    mounts("");
  }

  LinuxOptions options() const {
    LinuxOptions options;
    options.procRoot = root_ / "proc";
    options.sysRoot = root_ / "sys";
    options.udevDataRoot = root_ / "udev";
    options.devRoot = root_ / "dev";
    options.viewRoot = root_ / "view";
    return options;
  }

  std::shared_ptr<MountTable> mountTable() const { return std::make_shared<MountTable>(options()); }

  /// A block device whose folder is /sys/devices/`folder`, found by the name of the folder and by its number.
  void device(const std::string& folder, const std::string& number, Attributes attributes) {
    const std::filesystem::path name = std::filesystem::path(folder).filename();
    root_.write("sys/devices/" + folder + "/dev", number + "\n");
    for (const auto& [file, text] : attributes)
      root_.write("sys/devices/" + folder + "/" + file, text + "\n");
    root_.link("sys/class/block/" + name.string(), "../../devices/" + folder);
    root_.link("sys/dev/block/" + number, "../../devices/" + folder);
  }
  void attribute(const std::string& path, const std::string& text) {
    root_.write("sys/devices/" + path, text + "\n");
  }
  /// The list of the devices made so far cannot be read, or can be again.
  void devicesAreReadable(bool areReadable) {
    const std::filesystem::path list = root_ / "sys/class/block", next = root_ / "sys/class/next";
    if (!std::filesystem::is_symlink(list)) std::filesystem::rename(list, root_ / "sys/class/real");
    std::filesystem::create_symlink(areReadable ? "real" : "block", next);  // to itself: ELOOP
    std::filesystem::rename(next, list);                                    // atomically
  }
  /// The folder /sys/devices/`folder` belongs to a bus.
  void bus(const std::string& folder, const std::string& name) {
    root_.link("sys/devices/" + folder + "/subsystem", "../bus/" + name);
  }
  /// The device `upper` stands on `lower`.
  void below(const std::string& upper, const std::string& lower) {
    root_.link("sys/devices/virtual/block/" + upper + "/slaves/" + lower, "../../" + lower);
  }
  /// A device of a btrfs file system.
  void member(const std::string& system, const std::string& device, const std::string& label = "") {
    root_.write("sys/fs/btrfs/" + system + "/label", label + "\n");
    root_.link("sys/fs/btrfs/" + system + "/devices/" + device, "../../../../class/block/" + device);
  }
  void udev(const std::string& number, const std::string& text) { root_.write("udev/data/b" + number, text); }
  void diskStatistics(const std::string& text) { root_.write("proc/diskstats", text); }
  void mounts(const std::string& text, const std::string& process = "self") {
    root_.write("proc/" + process + "/mountinfo", text);
  }
  /// What stands at a mount point, for those who must ask.
  void fileAt(const std::string& point) { root_.write("view" + point, ""); }

 private:
  TemporaryFolder root_;
};

}  // namespace kmv::test
