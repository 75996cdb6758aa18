// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/testing/SimulatedPlatform.h>

#include "support/SessionRecorder.h"
#include "support/Testing.h"

namespace kmv {

using Lines = test::SessionRecorder::Lines;

/// The simulated machine and one session that listens to it.
class SimulatedMachine : public ::testing::Test {
 protected:
  /// "CARD at /Volumes/CARD".
  static std::string nameOf(const Dictionary& disk) {
    const std::string* name = disk.text(key::kVolumeName);
    const URL* path = disk.url(key::kVolumePath);
    return (name == nullptr ? "?" : *name) + (path == nullptr ? "" : " at " + path->path());
  }
  simulation::DiskId plugIn(const std::string& name, const std::string& mountPoint = {}) {
    return machine.plugIn({.name = name, .mountPoint = mountPoint});
  }
  /// The lines since the last call.
  Lines heard() {
    machine.runUntilIdle();
    return recorder.take();
  }

  simulation::SimulatedPlatform& machine = simulation::SimulatedPlatform::install(7);
  Platform& platform = Platform::current();
  test::SessionRecorder recorder{platform, nameOf};
};

}  // namespace kmv
