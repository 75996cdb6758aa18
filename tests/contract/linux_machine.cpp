// SPDX-License-Identifier: MIT
// Sessions and volumes of a Linux kernel: loop devices and mounts in a mount namespace of their own.
#include "contract/SessionContract.h"
#include "integration/support/Namespace.h"
#include "integration/support/Story.h"
#include "platform/NativePlatform.h"
#include "platform/posix/FileDescriptor.h"
#include "support/Testing.h"

namespace kmv::test {
namespace {

class LinuxMachine : public MachineHarness {
 public:
  std::string begin() override {
    std::string missing = integration::missingForVolumes();
    if (missing.empty()) missing = integration::missingForFuse();
    if (missing.empty()) missing = integration::missingForAnotherStory();
    if (!missing.empty()) return missing;
    space_.emplace();
    platform_ = makeNativePlatform();
    return "";
  }
  Platform& platform() override { return *platform_; }
  std::string folder() override { return space_->scratch(); }
  void makeUnlistable(const std::string&) override {}  // the suite of files has a harness of its own

  bool runUntil(const std::function<bool()>& condition) override { return eventually(condition); }
  std::string plugIn(const std::string& name) override {
    const std::string image = path("image" + std::to_string(images_++));
    integration::LoopDevice device(integration::makeImage(image, "ext4", name));
    const std::string known = device.name();
    devices_.emplace(known, std::move(device));
    return known;
  }
  void unplug(const std::string& device) override { devices_.erase(device); }
  void mount(const std::string& device, const std::string& point) override {
    integration::mountVolume("/dev/" + device, made(point), "ext4");
  }
  /// A FUSE volume whose server never answers: there is none.
  void mountPathVolume(const std::string& point) override {
    servers_.emplace_back(::open("/dev/fuse", O_RDWR | O_CLOEXEC));
    integration::mountVolume(
        "share", made(point), "fuse.kmvshare",
        "fd=" + std::to_string(servers_.back().get()) + ",rootmode=40000,user_id=0,group_id=0");
  }
  std::string mountHidden(const std::string& point) override {
    integration::mountVolume("t", made(point), "tmpfs");
    return "tmpfs";
  }
  void unmount(const std::string& point) override { integration::unmount(path(point)); }
  void move(const std::string& point, const std::string& newPoint) override {
    integration::moveMount(path(point), made(newPoint));
  }
  std::int64_t hold(const std::string& point) override {
    held_ = FileDescriptor(::open(path(point).c_str(), O_RDONLY | O_CLOEXEC));
    return ::getpid();
  }
  void release() override { held_.reset(); }
  std::string nameToRefuse() override { return "a name far too long"; }

 private:
  /// A point that is there is not asked for: what is mounted on it may never answer.
  std::string made(const std::string& point) {
    if (::mkdir(path(point).c_str(), 0755) != 0 && errno != EEXIST)
      std::filesystem::create_directories(path(point));
    return path(point);
  }

  std::optional<integration::Namespace> space_;
  std::unique_ptr<Platform> platform_;
  std::map<std::string, integration::LoopDevice> devices_;
  std::vector<FileDescriptor> servers_;
  FileDescriptor held_;
  int images_ = 0;
};

std::unique_ptr<MachineHarness> makeLinuxMachine() {
  return std::make_unique<LinuxMachine>();
}

INSTANTIATE_TEST_SUITE_P(Linux, VolumesContract, ::testing::Values(&makeLinuxMachine));
INSTANTIATE_TEST_SUITE_P(Linux, SessionContract, ::testing::Values(&makeLinuxMachine));

}  // namespace
}  // namespace kmv::test
