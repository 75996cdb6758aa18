// SPDX-License-Identifier: MIT
#include "platform/macos/Queues.h"

#include <algorithm>
#include <cstdint>
#include <exception>
#include <utility>

#include "base/RunOrStop.h"
#include "platform/macos/MainQueue.h"
#include "platform/macos/QueueScope.h"

namespace kmv::macos {
namespace {

qos_class_t classOf(QualityOfService quality) {
  switch (quality) {
    case QualityOfService::unspecified:
    case QualityOfService::core:
      break;
    case QualityOfService::userInteractive:
      return QOS_CLASS_USER_INTERACTIVE;
    case QualityOfService::userInitiated:
      return QOS_CLASS_USER_INITIATED;
    case QualityOfService::standard:
      return QOS_CLASS_DEFAULT;
    case QualityOfService::utility:
      return QOS_CLASS_UTILITY;
    case QualityOfService::background:
      return QOS_CLASS_BACKGROUND;
  }
  return QOS_CLASS_UNSPECIFIED;
}

dispatch_queue_t createQueue(const std::string& label, dispatch_queue_attr_t kind, QualityOfService quality) {
  return dispatch_queue_create(label.c_str(),
                               dispatch_queue_attr_make_with_qos_class(kind, classOf(quality), 0));
}

class MacConcurrentQueue final : public ConcurrentQueue {
 public:
  MacConcurrentQueue(std::string label, QualityOfService quality)
      : label_(std::move(label)), queue_(createQueue(label_, DISPATCH_QUEUE_CONCURRENT, quality)) {}
  ~MacConcurrentQueue() override { dispatch_release(queue_); }
  MacConcurrentQueue(const MacConcurrentQueue&) = delete;
  MacConcurrentQueue& operator=(const MacConcurrentQueue&) = delete;

  const std::string& label() const override { return label_; }
  void async(SerialQueue::Task task) override {
    dispatch_async_f(queue_, new Posted{std::move(task), label_}, &run);
  }

 private:
  struct Posted {
    SerialQueue::Task task;
    std::string label;
  };
  static void run(void* context) noexcept {
    const std::unique_ptr<const Posted> posted(static_cast<const Posted*>(context));
    runOrStop(posted->task, posted->label);
  }

  const std::string label_;
  const dispatch_queue_t queue_;
};

}  // namespace

/// A task on its way. Keeps the queue's wrapper, whose address tells the queue.
struct MacSerialQueue::Posted {
  std::shared_ptr<MacSerialQueue> queue;
  Task task;
};

/// A caller of `sync`, on its stack. Its exception waits here: none may cross the platform's frames.
struct MacSerialQueue::Call {
  const MacSerialQueue& queue;
  TaskReference task;
  std::exception_ptr exception = nullptr;
};

MacSerialQueue::MacSerialQueue(dispatch_queue_t queue)
    : queue_(queue), label_(dispatch_queue_get_label(queue)) {
  dispatch_queue_set_specific(queue_, this, this, nullptr);
}

MacSerialQueue::~MacSerialQueue() {
  dispatch_queue_set_specific(queue_, this, nullptr, nullptr);
  dispatch_release(queue_);
}

MacSerialQueue::Posted* MacSerialQueue::post(Task&& task) {
  return new Posted{shared_from_this(), std::move(task)};
}

void MacSerialQueue::async(Task task) {
  dispatch_async_f(queue_, post(std::move(task)), &runPosted);
}

void MacSerialQueue::after(std::chrono::nanoseconds delay, Task task) {
  if (delay <= std::chrono::nanoseconds::zero()) return async(std::move(task));
  dispatch_after_f(timeAfter(delay), queue_, post(std::move(task)), &runPosted);
}

void MacSerialQueue::runPosted(void* context) noexcept {
  const std::unique_ptr<Posted> posted(static_cast<Posted*>(context));
  const QueueScope scope(posted->queue->queue_, posted->queue->label_);
  runOrStop(posted->task, posted->queue->label_);
  posted->task = nullptr;  // what it captured dies within the turn
}

void MacSerialQueue::sync(TaskReference task) {
  if (isCurrent()) QueueScope::stopForReentry("sync", label_);
  Call call{*this, task};
  dispatch_sync_f(queue_, &call, &runCall);
  if (call.exception != nullptr) std::rethrow_exception(std::move(call.exception));
}

void MacSerialQueue::runCall(void* context) noexcept {
  auto& call = *static_cast<Call*>(context);
  const QueueScope scope(call.queue.queue_, call.queue.label_);
  try {
    call.task();
  } catch (...) {
    call.exception = std::current_exception();
  }
}

/// The scopes miss tasks that the platform or a host starts by itself, the platform's answer misses the
/// queues further out.
bool MacSerialQueue::isCurrent() const {
  return QueueScope::holds(queue_) || dispatch_get_specific(this) != nullptr;
}

MacQueueFactory::MacQueueFactory() : mainQueue_(std::make_shared<MacMainQueue>()) {}

MacQueueFactory::~MacQueueFactory() = default;

std::shared_ptr<SerialQueue> MacQueueFactory::makeSerialQueue(std::string label, QualityOfService quality) {
  return makeQueue(label, quality);
}

std::shared_ptr<SerialQueue> MacQueueFactory::makeQueue(const std::string& label, QualityOfService quality) {
  return std::make_shared<MacSerialQueue>(createQueue(label, DISPATCH_QUEUE_SERIAL, quality));
}

std::shared_ptr<ConcurrentQueue> MacQueueFactory::makeConcurrentQueue(std::string label,
                                                                      QualityOfService quality) {
  return std::make_shared<MacConcurrentQueue>(std::move(label), quality);
}

MainQueue& MacQueueFactory::mainQueue() {
  return *mainQueue_;
}

dispatch_queue_t dispatchQueueOf(const SerialQueue& queue) {
  if (const auto* const serial = dynamic_cast<const MacSerialQueue*>(&queue)) return serial->queue();
  return dynamic_cast<const MacMainQueue*>(&queue) != nullptr ? dispatch_get_main_queue() : nullptr;
}

dispatch_time_t timeAfter(std::chrono::nanoseconds delay) {
  constexpr std::chrono::nanoseconds kLongest = std::chrono::years(20);
  return dispatch_time(DISPATCH_TIME_NOW, std::min(delay, kLongest).count());
}

}  // namespace kmv::macos
