// SPDX-License-Identifier: MIT
#pragma once

#include "platform/macos/double/FakePlatform.h"
#include "support/Testing.h"

namespace kmv::macos {

/// Fails when something that the platform handed out was not given back.
inline void expectNothingIsLeft() {
  fake::runUntilIdle();
  EXPECT_EQ(fake::liveObjects(), 0);
  EXPECT_EQ(fake::openHandles(), 0);
  EXPECT_EQ(fake::liveQueues(), 0);
  EXPECT_EQ(fake::openBrowsers(), 0);
  EXPECT_EQ(fake::openPools(), 0);
}

/// A case over the doubles.
class MacTest : public ::testing::Test {
 protected:
  /// Threads may have run before a case that dies.
  void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
  void TearDown() override {
    fake::reset();
    expectNothingIsLeft();
  }
};

}  // namespace kmv::macos
