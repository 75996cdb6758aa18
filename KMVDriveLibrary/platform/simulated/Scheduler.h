// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Queue.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "platform/QueueFactory.h"
#include "platform/simulated/Random.h"

namespace kmv::simulated {

/// A queue; outlives its handle while tasks wait.
struct QueueState {
  std::uint64_t number = 0;  // order of creation: no choice may depend on addresses
  std::string label;
  std::deque<SerialQueue::Task> tasks;
};
using QueueStatePointer = std::shared_ptr<QueueState>;

/// Runs the tasks of all queues on one thread under virtual time; the seed picks among the queues that are
/// ready.
class Scheduler : public QueueFactory {
 public:
  explicit Scheduler(std::uint64_t seed);
  ~Scheduler() override;

  std::shared_ptr<SerialQueue> makeSerialQueue(std::string label,
                                               QualityOfService = QualityOfService::unspecified) override;
  std::shared_ptr<ConcurrentQueue> makeConcurrentQueue(
      std::string label, QualityOfService = QualityOfService::unspecified) override;
  MainQueue& mainQueue() override;

  std::size_t runUntilIdle();
  bool runOne();
  void advance(std::chrono::nanoseconds duration);
  std::chrono::nanoseconds now() const { return now_; }
  std::string currentQueueLabel() const;
  /// The task in progress, or the test, waits for `what`: time passes and other queues go on. Aborts the process when it
  /// would wait for ever.
  void waitInTask(const std::string& what, std::chrono::nanoseconds duration);

  /// Aborts the process on any thread but the one that made the machine: calls from a second one would not be
  /// deterministic.
  void requireOwnThread() const;

  // For the queues.
  void async(const QueueStatePointer& queue, SerialQueue::Task task);
  void sync(const QueueStatePointer& queue, const TaskReference& task);
  void after(const QueueStatePointer& queue, std::chrono::nanoseconds delay, SerialQueue::Task task);
  bool isCurrent(const QueueState& queue) const;
  void runMainQueue();
  void stopMainQueue();
  std::size_t drainMainQueue();

 private:
  /// A task in progress. Where a real machine would run it on a thread of its own, `ownThread` is set.
  struct Frame {
    const QueueState* queue;
    bool ownThread;
  };
  class Running;
  struct Timer {
    QueueStatePointer queue;
    SerialQueue::Task task;
  };
  using TimerKey = std::pair<std::chrono::nanoseconds, std::uint64_t>;

  QueueStatePointer makeState(std::string label);
  bool isRunning(const QueueState& queue) const;
  std::vector<QueueStatePointer> readyQueues() const;
  SerialQueue::Task takeFirst(const QueueStatePointer& queue);
  void runFirst(const QueueStatePointer& queue);
  bool jumpToNextTimer(std::chrono::nanoseconds limit);

  const std::thread::id ownThread_;
  Random random_;
  std::chrono::nanoseconds now_{0};
  std::uint64_t nextQueue_ = 0;
  std::uint64_t nextTimer_ = 0;
  std::map<std::uint64_t, QueueStatePointer> waiting_;  // queues with tasks
  std::map<TimerKey, Timer> timers_;
  std::vector<Frame> running_;  // innermost last
  QueueStatePointer mainState_;
  std::unique_ptr<MainQueue> main_;
  bool mainLoopRuns_ = false;
  bool stopRequested_ = false;
};

}  // namespace kmv::simulated
