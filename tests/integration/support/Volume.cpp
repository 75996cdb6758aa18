// SPDX-License-Identifier: MIT
#include "integration/support/Volume.h"

#include <linux/blkpg.h>
#include <linux/loop.h>
#include <sys/ioctl.h>

#include "support/Process.h"
#include "support/Testing.h"

namespace kmv::integration {
namespace {

[[noreturn]] void fail(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

}  // namespace

LoopDevice::LoopDevice(const std::string& backingFile) {
  const int file = open(backingFile.c_str(), O_RDWR | O_CLOEXEC);
  const int control = open("/dev/loop-control", O_RDWR | O_CLOEXEC);
  if (file < 0 || control < 0) fail("attaching " + backingFile);
  constexpr int kMostRaces = 100;  // others may take the free device first
  bool attached = false;
  for (int race = 0; race < kMostRaces && !attached; ++race) {
    const int number = ioctl(control, LOOP_CTL_GET_FREE);
    attached = number >= 0 && attach(number, file);
    if (!attached && errno != EBUSY) break;
  }
  const int error = errno;
  close(control);
  close(file);
  errno = error;
  if (!attached) fail("attaching " + backingFile);
}

LoopDevice::LoopDevice(LoopDevice&& other) noexcept
    : name_(std::move(other.name_)),
      descriptor_(std::exchange(other.descriptor_, -1)),
      partitions_(std::move(other.partitions_)) {}

bool LoopDevice::changePartition(int operation, int number, long long start, long long length) {
  blkpg_partition partition{};
  partition.pno = number;
  partition.start = start;
  partition.length = length;
  blkpg_ioctl_arg request{operation, 0, sizeof partition, &partition};
  return ioctl(descriptor_, BLKPG, &request) == 0;
}

bool LoopDevice::addPartition(int number, long long start, long long length) {
  changePartition(BLKPG_DEL_PARTITION, number, 0, 0);  // one that somebody left behind on this device
  if (!changePartition(BLKPG_ADD_PARTITION, number, start, length)) return false;
  partitions_.push_back(number);
  return true;
}

bool LoopDevice::attach(int number, int file) {
  name_ = "loop" + std::to_string(number);
  descriptor_ = open(node().c_str(), O_RDWR | O_CLOEXEC);
  if (descriptor_ < 0) return false;
  loop_config config{};
  config.fd = static_cast<__u32>(file);
  config.info.lo_flags = LO_FLAGS_AUTOCLEAR;
  if (ioctl(descriptor_, LOOP_CONFIGURE, &config) == 0) return true;
  const int error = errno;
  close(std::exchange(descriptor_, -1));
  errno = error;
  return false;
}

void LoopDevice::detach() {
  if (descriptor_ < 0) return;
  for (const int number : partitions_)
    changePartition(BLKPG_DEL_PARTITION, number, 0, 0);  // it would leave them behind
  ioctl(descriptor_, LOOP_CLR_FD, 0);
  close(std::exchange(descriptor_, -1));
}

std::string makeImage(const std::string& path, const std::string& kind, const std::string& label) {
  test::Process::Words words;
  std::uintmax_t size = 0;
  if (kind == "ext4") {
    size = 2U << 20;
    words = {"mkfs.ext4", "-q", "-F", "-O", "^has_journal", "-m", "0", "-L", label, path};
  } else if (kind == "xfs") {
    size = 300U << 20;  // the smallest that mkfs.xfs makes
    words = {"mkfs.xfs", "-q", "-L", label, path};
  } else {
    size = 110U << 20;
    words = {"mkfs." + kind, "-q", "-L", label, path};
  }
  close(open(path.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0600));
  std::filesystem::resize_file(path, size);
  if (test::run(std::move(words)).exitCode != 0) throw std::runtime_error("mkfs." + kind + " failed");
  return path;
}

std::string missingForImages(const std::string& kind) {
  return test::isInstalled("mkfs." + kind) ? "" : "needs mkfs." + kind;
}

std::string blkidValue(const std::string& node, const std::string& tag) {
  std::string value = test::run({"blkid", "-p", "-o", "value", "-s", tag, node}).output;
  while (value.ends_with('\n')) value.pop_back();
  return value;
}

}  // namespace kmv::integration
