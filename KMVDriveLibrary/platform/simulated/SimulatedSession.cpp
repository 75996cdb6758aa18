// SPDX-License-Identifier: MIT
#include "platform/simulated/SimulatedSession.h"

#include <utility>

#include "base/Fatal.h"
#include "platform/simulated/Machine.h"

namespace kmv::simulated {
namespace {

/// A disk that the library looked up: described as it is at the moment of each question.
class PresentDisk final : public Disk {
 public:
  PresentDisk(simulation::DiskId disk, const Machine& machine) : disk_(disk), machine_(machine) {}

  std::optional<Dictionary> copyDescription() const override { return machine_.presentDescription(disk_); }
  simulation::DiskId id() const { return disk_; }

 private:
  simulation::DiskId disk_;
  const Machine& machine_;
};

simulation::DiskId idOf(const Disk& disk) {
  const auto* const ours = dynamic_cast<const PresentDisk*>(&disk);
  if (ours == nullptr) fatal("a command needs a disk that diskFromVolumePath gave");
  return ours->id();
}

}  // namespace

SimulatedSession::SimulatedSession(std::shared_ptr<SessionState> state, Machine& machine)
    : state_(std::move(state)), machine_(machine) {}

SimulatedSession::~SimulatedSession() {
  state_->close();
}

void SimulatedSession::setQueue(std::shared_ptr<SerialQueue> queue) {
  state_->setQueue(std::move(queue));
}

void SimulatedSession::registerCallbacks(const DiskCallbacks& callbacks, void* context) {
  state_->registerCallbacks(callbacks, context);
  machine_.reportPresentDisks(state_);
}

std::unique_ptr<Disk> SimulatedSession::diskFromVolumePath(const URL& volume) {
  const auto disk = volume.isFileURL() ? machine_.diskMountedAt(volume.path()) : std::nullopt;
  return disk ? std::make_unique<PresentDisk>(*disk, machine_) : nullptr;
}

void SimulatedSession::unmount(const Disk& disk, CommandCompletion completion, void* context) {
  const simulation::DiskId id = idOf(disk);
  complete(id, machine_.requestUnmount(id), completion, context);
}

void SimulatedSession::rename(const Disk& disk, const std::string& newName, CommandCompletion completion,
                              void* context) {
  const simulation::DiskId id = idOf(disk);
  complete(id, machine_.requestRename(id, newName), completion, context);
}

void SimulatedSession::complete(simulation::DiskId disk, std::optional<Dictionary> dissenter,
                                CommandCompletion completion, void* context) {
  state_->async([disk, dissenter = std::move(dissenter), completion, context, &machine = machine_] {
    PresentDisk present(disk, machine);
    completion(&present, dissenter ? &*dissenter : nullptr, context);
  });
}

}  // namespace kmv::simulated
