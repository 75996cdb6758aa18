// SPDX-License-Identifier: MIT
// The simulated machine under the contract suites.
#include <KMVDriveLibrary/testing/SimulatedPlatform.h>

#include "contract/SessionContract.h"
#include "support/Testing.h"

namespace kmv::test {
namespace {

using simulation::DiskId;

class SimulatedMachine : public MachineHarness {
 public:
  std::string begin() override {
    machine_ = &simulation::SimulatedPlatform::install();
    return "";
  }
  Platform& platform() override { return Platform::current(); }
  std::string folder() override { return "/scratch"; }
  void writeFile(const std::string& name, const std::string& bytes) override {
    machine_->writeFile(path(name), bytes);
  }
  void createLink(const std::string& name, const std::string& target) override {
    machine_->createLink(path(name), target);
  }
  void moveItem(const std::string& name, const std::string& newName) override {
    machine_->moveItem(path(name), path(newName));
  }
  void removeItem(const std::string& name) override { machine_->removeItem(path(name)); }
  void makeUnlistable(const std::string& folder) override { machine_->setListable(path(folder), false); }

  bool runUntil(const std::function<bool()>& condition) override {
    machine_->runUntilIdle();
    return condition();
  }
  std::string plugIn(const std::string& name) override {
    const std::string device = "disk" + std::to_string(devices_.size() + 2);
    devices_[device] = machine_->plugIn({.name = name, .bsdName = device});
    return device;
  }
  void unplug(const std::string& device) override { machine_->unplug(devices_.at(device)); }
  void mount(const std::string& device, const std::string& point) override {
    machine_->mount(devices_.at(device), path(point));
    mounted_[point].push_back(devices_.at(device));
  }
  void mountPathVolume(const std::string& point) override {
    mounted_[point].push_back(machine_->plugInPathVolume({.mountPoint = path(point), .name = point}));
  }
  std::string mountHidden(const std::string& point) override {
    machine_->addHiddenMount({path(point), "tmpfs", "pseudo"});
    return "tmpfs";
  }
  void unmount(const std::string& point) override { machine_->unmount(takeNewest(point)); }
  void move(const std::string& point, const std::string& newPoint) override {
    mounted_[newPoint].push_back(takeNewest(point));
    machine_->move(mounted_[newPoint].back(), path(newPoint));
  }
  std::int64_t hold(const std::string&) override {
    machine_->refuseNextUnmount(dissent::kBusy, 4711);
    return 4711;
  }
  void release() override {}
  std::string nameToRefuse() override {
    machine_->refuseNextRename(dissent::kBadArgument);
    return "BAD";
  }

 private:
  DiskId takeNewest(const std::string& point) {
    const DiskId newest = mounted_.at(point).back();
    mounted_.at(point).pop_back();
    return newest;
  }

  simulation::SimulatedPlatform* machine_ = nullptr;
  std::map<std::string, DiskId> devices_;
  std::map<std::string, std::vector<DiskId>> mounted_;  // by point, the newest last
};

template <typename Harness>
std::unique_ptr<Harness> make() {
  return std::make_unique<SimulatedMachine>();
}

INSTANTIATE_TEST_SUITE_P(Simulated, FilesContract, ::testing::Values(&make<FilesHarness>));
INSTANTIATE_TEST_SUITE_P(Simulated, VolumesContract, ::testing::Values(&make<MachineHarness>));
INSTANTIATE_TEST_SUITE_P(Simulated, SessionContract, ::testing::Values(&make<MachineHarness>));

}  // namespace
}  // namespace kmv::test
