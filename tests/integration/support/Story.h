// SPDX-License-Identifier: MIT
#pragma once

#include "integration/support/Namespace.h"
#include "integration/support/Volume.h"
#include "support/Process.h"
#include "support/Testing.h"

namespace kmv::integration {

using namespace test;  // processes are what stories are told with

/// Why there are no loop devices with ext4 on them.
inline std::string missingForVolumes() {
  const std::string missing = missingForLoopDevices();
  return missing.empty() ? missingForImages("ext4") : missing;
}

/// The library watches the namespace in which it was first used, so each story needs a process of its own, as CTest
/// gives each case.
inline std::string missingForAnotherStory() {
  static bool used = false;
  return std::exchange(used, true)
             ? "needs a process of its own: run it with ctest, or alone with --gtest_filter"
             : "";
}

/// A copy of a program that a plain user may run, however the place is guarded where it was built.
inline std::string copyProgram(const std::string& program, const Namespace& space) {
  const std::string copy = space.path("program");
  std::filesystem::copy_file(program, copy);
  std::filesystem::permissions(copy, std::filesystem::perms(0755));
  return copy;
}

/// A test in a mount namespace of its own.
class Story : public ::testing::Test {
 protected:
  /// Says why and skips where this machine cannot tell the story. To be followed by a look at `IsSkipped()`.
  void begin(std::string missing, Namespace::As who = Namespace::As::root) {
    if (missing.empty()) missing = missingForAnotherStory();
    if (!missing.empty()) GTEST_SKIP() << missing;
    space_.emplace(who);
  }

  const Namespace& space() const { return *space_; }

  /// A loop device with a new file system.
  LoopDevice newVolume(const std::string& kind, const std::string& label) {
    return LoopDevice(makeImage(space().path(label + ".img"), kind, label));
  }

 private:
  std::optional<Namespace> space_;
};

/// A story with loop devices and ext4 on them.
class VolumeStory : public Story {
 protected:
  void SetUp() override { begin(missingForVolumes()); }
};

/// A story with FUSE mounts beside the loop devices.
class FuseStory : public VolumeStory {
 protected:
  void SetUp() override {
    if (const std::string missing = missingForFuse(); !missing.empty()) GTEST_SKIP() << missing;
    VolumeStory::SetUp();
  }
};

}  // namespace kmv::integration
