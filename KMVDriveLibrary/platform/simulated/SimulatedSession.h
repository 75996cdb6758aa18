// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/testing/SimulatedPlatform.h>

#include <memory>
#include <optional>
#include <string>

#include "platform/DiskArbitrationSession.h"
#include "platform/simulated/SessionState.h"

namespace kmv::simulated {

class Machine;

/// The library's handle of a session.
class SimulatedSession final : public DiskArbitrationSession {
 public:
  SimulatedSession(std::shared_ptr<SessionState> state, Machine& machine);
  ~SimulatedSession() override;
  SimulatedSession(const SimulatedSession&) = delete;
  SimulatedSession& operator=(const SimulatedSession&) = delete;

  void setQueue(std::shared_ptr<SerialQueue> queue) override;
  void registerCallbacks(const DiskCallbacks& callbacks, void* context) override;
  std::unique_ptr<Disk> diskFromVolumePath(const URL& volume) override;
  void unmount(const Disk& disk, CommandCompletion completion, void* context) override;
  void rename(const Disk& disk, const std::string& newName, CommandCompletion completion,
              void* context) override;

 private:
  /// Reports a command's end on the session's queue.
  void complete(simulation::DiskId disk, std::optional<Dictionary> dissenter, CommandCompletion completion,
                void* context);

  std::shared_ptr<SessionState> state_;
  Machine& machine_;
};

}  // namespace kmv::simulated
