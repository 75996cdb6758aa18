// SPDX-License-Identifier: MIT
#include "platform/simulated/Scheduler.h"

#include <algorithm>

#include "base/Fatal.h"
#include "base/RunOrStop.h"

namespace kmv::simulated {
namespace {

/// What the handle of every queue does: asks the scheduler.
template <typename Interface>
class Handle : public Interface {
 public:
  Handle(Scheduler& scheduler, QueueStatePointer state) : scheduler_(scheduler), state_(std::move(state)) {}

  const std::string& label() const override { return state_->label; }
  void async(SerialQueue::Task task) override { scheduler_.async(state_, std::move(task)); }
  void sync(TaskReference task) override { scheduler_.sync(state_, task); }
  void after(std::chrono::nanoseconds delay, SerialQueue::Task task) override {
    scheduler_.after(state_, delay, std::move(task));
  }
  bool isCurrent() const override { return scheduler_.isCurrent(*state_); }

 protected:
  Scheduler& scheduler_;
  QueueStatePointer state_;
};

class MainQueueHandle final : public Handle<MainQueue> {
 public:
  using Handle::Handle;
  void run() override { scheduler_.runMainQueue(); }
  void stop() override { scheduler_.stopMainQueue(); }
  std::size_t drain() override { return scheduler_.drainMainQueue(); }
  int fileDescriptor() override { return -1; }
  std::size_t waitingTasks() const override { return state_->tasks.size(); }
};

/// Each task gets a queue of its own, so that the seed picks the order.
class ConcurrentTasks final : public ConcurrentQueue {
 public:
  ConcurrentTasks(Scheduler& scheduler, std::string label)
      : scheduler_(scheduler), label_(std::move(label)) {}
  const std::string& label() const override { return label_; }
  void async(SerialQueue::Task task) override { scheduler_.makeSerialQueue(label_)->async(std::move(task)); }

 private:
  Scheduler& scheduler_;
  std::string label_;
};

constexpr auto kForEver = std::chrono::nanoseconds::max();

std::chrono::nanoseconds sumWithoutOverflow(std::chrono::nanoseconds time, std::chrono::nanoseconds delay) {
  return delay > kForEver - time ? kForEver : time + delay;
}

}  // namespace

/// Marks a task as in progress for the lifetime of this object (RAII: also when the task throws).
class Scheduler::Running {
 public:
  Running(Scheduler& scheduler, const QueueState& queue, bool ownThread) : frames_(scheduler.running_) {
    frames_.push_back({&queue, ownThread});
  }
  ~Running() { frames_.pop_back(); }
  Running(const Running&) = delete;
  Running& operator=(const Running&) = delete;

 private:
  std::vector<Frame>& frames_;
};

Scheduler::Scheduler(std::uint64_t seed) : ownThread_(std::this_thread::get_id()), random_(seed) {
  mainState_ = makeState("main");
  main_ = std::make_unique<MainQueueHandle>(*this, mainState_);
}

Scheduler::~Scheduler() = default;

QueueStatePointer Scheduler::makeState(std::string label) {
  auto state = std::make_shared<QueueState>();
  state->number = nextQueue_++;
  state->label = std::move(label);
  return state;
}

std::shared_ptr<SerialQueue> Scheduler::makeSerialQueue(std::string label, QualityOfService) {
  requireOwnThread();
  return std::make_shared<Handle<SerialQueue>>(*this, makeState(std::move(label)));
}

std::shared_ptr<ConcurrentQueue> Scheduler::makeConcurrentQueue(std::string label, QualityOfService) {
  requireOwnThread();
  return std::make_shared<ConcurrentTasks>(*this, std::move(label));
}

MainQueue& Scheduler::mainQueue() {
  return *main_;
}

void Scheduler::requireOwnThread() const {
  if (std::this_thread::get_id() != ownThread_) {
    fatal("the simulated machine runs on one thread, and was called from another");
  }
}

void Scheduler::async(const QueueStatePointer& queue, SerialQueue::Task task) {
  requireOwnThread();
  queue->tasks.push_back(std::move(task));
  waiting_.emplace(queue->number, queue);
}

void Scheduler::after(const QueueStatePointer& queue, std::chrono::nanoseconds delay,
                      SerialQueue::Task task) {
  if (delay <= std::chrono::nanoseconds::zero()) return async(queue, std::move(task));
  requireOwnThread();
  timers_.emplace(TimerKey(sumWithoutOverflow(now_, delay), nextTimer_++), Timer{queue, std::move(task)});
}

void Scheduler::sync(const QueueStatePointer& queue, const TaskReference& task) {
  requireOwnThread();
  if (isRunning(*queue)) {
    fatal("deadlock: a task of queue \"" + currentQueueLabel() + "\" waits for queue \"" + queue->label +
          "\", which waits for that task");
  }
  // NOLINTNEXTLINE(performance-unnecessary-copy-initialization): the task may drop the handle that `queue` is in
  const QueueStatePointer held = queue;
  for (auto earlier = held->tasks.size(); earlier > 0; --earlier) runFirst(held);
  const Running running(*this, *held, false);
  task();
}

bool Scheduler::isRunning(const QueueState& queue) const {
  for (const Frame& frame : running_) {
    if (frame.queue == &queue) return true;
  }
  return false;
}

bool Scheduler::isCurrent(const QueueState& queue) const {
  if (std::this_thread::get_id() != ownThread_) return false;
  for (auto frame = running_.rbegin(); frame != running_.rend(); ++frame) {
    if (frame->queue == &queue) return true;
    if (frame->ownThread) return false;
  }
  return false;
}

std::string Scheduler::currentQueueLabel() const {
  requireOwnThread();
  return running_.empty() ? std::string() : running_.back().queue->label;
}

SerialQueue::Task Scheduler::takeFirst(const QueueStatePointer& queue) {
  SerialQueue::Task task = std::move(queue->tasks.front());
  queue->tasks.pop_front();
  if (queue->tasks.empty()) waiting_.erase(queue->number);
  return task;
}

void Scheduler::runFirst(const QueueStatePointer& queue) {
  const SerialQueue::Task task = takeFirst(queue);
  const Running running(*this, *queue, true);
  runOrStop(task, queue->label);
}

std::vector<QueueStatePointer> Scheduler::readyQueues() const {
  std::vector<QueueStatePointer> ready;
  for (const auto& [number, queue] : waiting_) {
    if (!isRunning(*queue)) ready.push_back(queue);
  }
  return ready;
}

bool Scheduler::runOne() {
  requireOwnThread();
  const auto ready = readyQueues();
  if (ready.empty()) return false;
  runFirst(ready[random_.below(ready.size())]);
  return true;
}

std::size_t Scheduler::runUntilIdle() {
  std::size_t count = 0;
  while (runOne()) ++count;
  return count;
}

bool Scheduler::jumpToNextTimer(std::chrono::nanoseconds limit) {
  if (timers_.empty() || timers_.begin()->first.first > limit) return false;
  // A task may have advanced time itself; time is monotonic.
  now_ = std::max(now_, timers_.begin()->first.first);
  while (!timers_.empty() && timers_.begin()->first.first <= now_) {
    Timer timer = std::move(timers_.begin()->second);
    timers_.erase(timers_.begin());
    async(timer.queue, std::move(timer.task));
  }
  return true;
}

void Scheduler::advance(std::chrono::nanoseconds duration) {
  requireOwnThread();
  if (duration < std::chrono::nanoseconds::zero()) fatal("simulated time cannot go back");
  const auto target = sumWithoutOverflow(now_, duration);
  do {
    runUntilIdle();
  } while (jumpToNextTimer(target));
  now_ = std::max(now_, target);
}

void Scheduler::waitInTask(const std::string& what, std::chrono::nanoseconds duration) {
  if (duration != kForEver) return advance(duration);
  const std::string who = running_.empty() ? "the test" : "a task of queue \"" + currentQueueLabel() + "\"";
  fatal(who + " waits for " + what + " on a volume that hangs");
}

void Scheduler::runMainQueue() {
  requireOwnThread();
  if (mainLoopRuns_ || isRunning(*mainState_)) fatal("run of the main queue was called while it runs");
  struct Loop {
    explicit Loop(bool& flag) : runs(flag) { runs = true; }
    ~Loop() { runs = false; }
    Loop(const Loop&) = delete;
    Loop& operator=(const Loop&) = delete;
    bool& runs;
  } const loop(mainLoopRuns_);
  while (!stopRequested_) {
    if (runOne() || jumpToNextTimer(kForEver)) continue;
    fatal("run of the main queue would never end: no task is left that could call stop");
  }
  stopRequested_ = false;
}

void Scheduler::stopMainQueue() {
  requireOwnThread();
  stopRequested_ = true;
}

std::size_t Scheduler::drainMainQueue() {
  requireOwnThread();
  if (isCurrent(*mainState_)) return 0;
  if (mainLoopRuns_ || isRunning(*mainState_))
    fatal("the main queue is run or drained by two threads at a time");
  const std::size_t due = mainState_->tasks.size();
  std::size_t count = 0;
  for (; count < due; ++count) runFirst(mainState_);
  return count;
}

}  // namespace kmv::simulated
