// SPDX-License-Identifier: MIT
// The macOS backend over its doubles under the contract suites. What is on a volume is a folder of the machine
// that runs the test; an unmounted volume's folder waits aside.
#include <sys/mount.h>

#include "contract/SessionContract.h"
#include "platform/macos/MacPlatform.h"
#include "platform/macos/MacTest.h"
#include "support/TemporaryFolder.h"
#include "support/Testing.h"

namespace kmv::test {
namespace {

class MacMachine : public MachineHarness {
 public:
  ~MacMachine() override {
    platform_.reset();
    fake::reset();
    macos::expectNothingIsLeft();
  }
  std::string begin() override { return ""; }
  Platform& platform() override { return *platform_; }
  std::string folder() override { return folder_.path(); }
  void makeUnlistable(const std::string& folder) override { unlistable_.add(path(folder)); }

  bool runUntil(const std::function<bool()>& condition) override {
    fake::runUntilIdle();
    return condition();
  }
  bool hasMoveEvent() override { return true; }
  bool canHideMounts() override { return false; }  // the double's daemon refuses it
  std::string plugIn(const std::string& name) override {
    const std::string device = "disk" + std::to_string(++devices_);
    fake::attach({.bsdName = device, .description = {{"DAVolumeName", name}}});
    return device;
  }
  void unplug(const std::string& device) override { fake::detach(device); }
  void mount(const std::string& device, const std::string& point) override {
    show(device, point);
    fake::mountDisk(device, path(point));
  }
  void mountPathVolume(const std::string& point) override {
    show(path(point), point);
    fake::attach({.mountPoint = path(point),
                  .description = {{"DAVolumeName", point}},
                  .kind = "smbfs",
                  .source = "//host/" + point});
  }
  std::string mountHidden(const std::string& point) override {
    std::filesystem::create_directories(path(point));
    fake::addMount(path(point), "devfs", "devfs", MNT_DONTBROWSE);
    return "devfs";
  }
  void unmount(const std::string& point) override {
    fake::unmountDisk(mounted_.at(point));
    hide(point);
  }
  void move(const std::string& point, const std::string& newPoint) override {
    const std::string device = mounted_.at(point);
    hide(point);
    show(device, newPoint);
    fake::mountDisk(device, path(newPoint));
  }
  std::int64_t hold(const std::string&) override {
    fake::refuseNext(fake::Refusal::byDaemon, dissent::kBusy, 4711);
    return 4711;
  }
  void release() override {}
  std::string nameToRefuse() override {
    fake::refuseNext(fake::Refusal::byDaemon, dissent::kBadArgument);
    return "BAD";
  }

 private:
  void show(const std::string& device, const std::string& point) {
    mounted_[point] = device;
    if (const auto known = aside_.find(device); known != aside_.end()) {
      std::filesystem::rename(known->second, path(point));
    } else {
      std::filesystem::create_directories(path(point));
    }
  }
  void hide(const std::string& point) {
    const std::string aside = path(".aside" + std::to_string(++hidden_));
    std::filesystem::rename(path(point), aside_[mounted_.at(point)] = aside);
    mounted_.erase(point);
  }

  TemporaryFolder folder_;
  UnlistableFolders unlistable_;
  std::unique_ptr<Platform> platform_ = std::make_unique<macos::MacPlatform>();
  std::map<std::string, std::string> mounted_, aside_;
  int devices_ = 0, hidden_ = 0;
};

template <typename Harness>
std::unique_ptr<Harness> make() {
  return std::make_unique<MacMachine>();
}

INSTANTIATE_TEST_SUITE_P(MacOS, FilesContract, ::testing::Values(&make<FilesHarness>));
INSTANTIATE_TEST_SUITE_P(MacOS, VolumesContract, ::testing::Values(&make<MachineHarness>));
INSTANTIATE_TEST_SUITE_P(MacOS, SessionContract, ::testing::Values(&make<MachineHarness>));

}  // namespace
}  // namespace kmv::test
