// SPDX-License-Identifier: MIT
#pragma once

#include "support/Testing.h"

namespace kmv::integration {

/// A loop device of our own over a file. The kernel detaches it with the last descriptor at the latest, so
/// that a test that is killed leaves none behind; a mount keeps it attached until it ends.
class LoopDevice {
 public:
  /// Failure: throws std::system_error.
  explicit LoopDevice(const std::string& backingFile);
  ~LoopDevice() { detach(); }
  LoopDevice(LoopDevice&& other) noexcept;
  LoopDevice(const LoopDevice&) = delete;
  LoopDevice& operator=(const LoopDevice&) = delete;

  const std::string& name() const { return name_; }  ///< "loop3"
  std::string node() const { return "/dev/" + name_; }
  /// Makes partition `number` ("loop3p1") of the bytes from `start` on; it goes when the device is detached.
  /// False when the kernel has no partitions on loop devices.
  bool addPartition(int number, long long start, long long length);
  /// Detaches now.
  void detach();

 private:
  bool changePartition(int operation, int number, long long start, long long length);
  bool attach(int number, int file);

  std::string name_;
  int descriptor_ = -1;
  std::vector<int> partitions_;
};

/// A new image file at `path` with a file system of `kind` ("ext4", "xfs", "btrfs") and name `label`, and a
/// new UUID. A program of e2fsprogs, xfsprogs or btrfs-progs makes it. Failure: throws std::runtime_error.
std::string makeImage(const std::string& path, const std::string& kind, const std::string& label);

/// The program that `makeImage` needs for this kind; for a reason to skip.
std::string missingForImages(const std::string& kind);

/// What blkid(8) reads from the device: "UUID", "LABEL".
std::string blkidValue(const std::string& node, const std::string& tag);

}  // namespace kmv::integration
