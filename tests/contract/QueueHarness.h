// SPDX-License-Identifier: MIT
#pragma once

#include "support/Testing.h"

namespace kmv::test {

/// One platform's queues, as the contract suite drives them.
///
/// Threads: used by one thread, which is the main queue's thread.
class QueueHarness {
 public:
  virtual ~QueueHarness() = default;

  virtual std::shared_ptr<SerialQueue> makeSerialQueue(const std::string& label) = 0;
  virtual MainQueue& mainQueue() = 0;

  /// Returns when every task that was handed to any queue, delayed ones and the main queue's included, has
  /// run.
  virtual void runUntilIdle() = 0;

  /// For a task: returns when so many tasks are here, or at once where one thread runs them all.
  virtual void waitForOthers(std::size_t) {}
};

using MakeQueueHarness = std::unique_ptr<QueueHarness> (*)();

/// What every platform's queues do. Instantiated in one file per platform.
class QueueContract : public ::testing::TestWithParam<MakeQueueHarness> {
 protected:
  std::shared_ptr<SerialQueue> makeQueue(const std::string& label) {
    return harness_->makeSerialQueue(label);
  }
  MainQueue& mainQueue() { return harness_->mainQueue(); }
  void runUntilIdle() { harness_->runUntilIdle(); }
  void waitForOthers(std::size_t tasks) { harness_->waitForOthers(tasks); }

 private:
  std::unique_ptr<QueueHarness> harness_ = GetParam()();
};

/// For the platforms that see who waits for whom.
class QueueCycles : public QueueContract {};
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(QueueCycles);

}  // namespace kmv::test
