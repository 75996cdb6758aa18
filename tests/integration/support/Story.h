// SPDX-License-Identifier: MIT
#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "integration/support/Namespace.h"
#include "integration/support/Volume.h"
#include "support/Process.h"

namespace kmv::integration {

using namespace test;  // processes are what stories are told with

/// A test in a mount namespace of its own. Needs a process of its own as well, as CTest gives each case: the
/// library watches the namespace in which it was first used.
class Story : public ::testing::Test {
 protected:
  /// Says why and skips where this machine cannot tell the story. To be followed by a look at `IsSkipped()`.
  void begin(const std::string& missing, Namespace::As who = Namespace::As::root) {
    static bool used = false;
    if (!missing.empty()) GTEST_SKIP() << missing;
    if (used) GTEST_SKIP() << "needs a process of its own: run it with ctest, or alone with --gtest_filter";
    used = true;
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
  void SetUp() override {
    std::string missing = missingForLoopDevices();
    if (missing.empty()) missing = missingForImages("ext4");
    begin(missing);
  }
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
