// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <memory>
#include <random>
#include <string>
#include <utility>

#include "platform/linux/LinuxOptions.h"
#include "platform/linux/mounts/MountTable.h"

namespace kmv::test {

/// A machine made of plain folders in the shape of /sys, udev's database and /proc. Gone with the object.
class FakeMachine {
 public:
  using Attributes = std::initializer_list<std::pair<const char*, std::string>>;

  FakeMachine() {
    std::random_device random;
    root_ = std::filesystem::temp_directory_path() /
            ("kmv-machine-" + std::to_string(random()) + std::to_string(random()));
    std::filesystem::create_directories(root_ / "view");
    mounts("");
  }
  ~FakeMachine() { std::filesystem::remove_all(root_); }
  FakeMachine(const FakeMachine&) = delete;
  FakeMachine& operator=(const FakeMachine&) = delete;

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
    write("sys/devices/" + folder + "/dev", number + "\n");
    for (const auto& [file, text] : attributes) write("sys/devices/" + folder + "/" + file, text + "\n");
    link("sys/class/block/" + name.string(), "../../devices/" + folder);
    link("sys/dev/block/" + number, "../../devices/" + folder);
  }
  /// The folder /sys/devices/`folder` belongs to a bus.
  void bus(const std::string& folder, const std::string& name) {
    link("sys/devices/" + folder + "/subsystem", "../bus/" + name);
  }
  /// The device `upper` stands on `lower`.
  void below(const std::string& upper, const std::string& lower) {
    link("sys/devices/virtual/block/" + upper + "/slaves/" + lower, "../../" + lower);
  }
  /// A device of a btrfs file system.
  void member(const std::string& system, const std::string& device) {
    link("sys/fs/btrfs/" + system + "/devices/" + device, "../../../../class/block/" + device);
  }
  void udev(const std::string& number, const std::string& text) { write("udev/data/b" + number, text); }
  void diskStatistics(const std::string& text) { write("proc/diskstats", text); }
  void mounts(const std::string& text, const std::string& process = "self") {
    write("proc/" + process + "/mountinfo", text);
  }
  /// What stands at a mount point, for those who must ask.
  void fileAt(const std::string& point) { write("view" + point, ""); }

 private:
  void write(const std::string& path, const std::string& text) {
    std::filesystem::create_directories((root_ / path).parent_path());
    std::ofstream(root_ / path, std::ios::binary) << text;
  }
  void link(const std::string& path, const std::string& target) {
    std::filesystem::create_directories((root_ / path).parent_path());
    std::filesystem::create_symlink(target, root_ / path);
  }

  std::filesystem::path root_;
};

}  // namespace kmv::test
