// SPDX-License-Identifier: MIT
#include "contract/QueueHarness.h"
#include "platform/linux/queues/Queues.h"
#include "support/Testing.h"

namespace kmv::test {
namespace {

using Count = std::shared_ptr<std::atomic<int>>;  // of tasks that have not run yet

class CountedQueue : public SerialQueue {
 public:
  CountedQueue(std::shared_ptr<SerialQueue> queue, Count open)
      : queue_(std::move(queue)), open_(std::move(open)) {}
  const std::string& label() const override { return queue_->label(); }
  void async(Task task) override { queue_->async(counted(std::move(task))); }
  void sync(TaskReference task) override { queue_->sync(task); }
  void after(std::chrono::nanoseconds delay, Task task) override {
    queue_->after(delay, counted(std::move(task)));
  }
  bool isCurrent() const override { return queue_->isCurrent(); }

 private:
  Task counted(Task task) {
    ++*open_;
    return [task = std::move(task), open = open_] {
      task();
      --*open;
    };
  }
  const std::shared_ptr<SerialQueue> queue_;
  const Count open_;
};

class NativeQueues : public QueueHarness {
 public:
  std::shared_ptr<SerialQueue> makeSerialQueue(const std::string& label) override {
    return std::make_shared<CountedQueue>(factory_.makeSerialQueue(label), open_);
  }
  MainQueue& mainQueue() override { return factory_.mainQueue(); }
  void runUntilIdle() override {
    while (*open_ > 0 || mainQueue().waitingTasks() > 0) {
      mainQueue().drain();
      std::this_thread::yield();
    }
  }
  void waitForOthers(std::size_t tasks) override {
    ++arrived_;
    while (arrived_ < tasks) std::this_thread::yield();
  }

 private:
  std::atomic<std::size_t> arrived_ = 0;
  LinuxQueueFactory factory_;
  const Count open_ = std::make_shared<std::atomic<int>>(0);
};

std::unique_ptr<QueueHarness> makeNativeQueues() {
  return std::make_unique<NativeQueues>();
}

INSTANTIATE_TEST_SUITE_P(Native, QueueContract, ::testing::Values(&makeNativeQueues));
INSTANTIATE_TEST_SUITE_P(Native, QueueCycles, ::testing::Values(&makeNativeQueues));

}  // namespace
}  // namespace kmv::test
