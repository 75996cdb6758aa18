// SPDX-License-Identifier: MIT
#pragma once

#include <dispatch/dispatch.h>

#include <chrono>
#include <memory>
#include <string>

#include "platform/QueueFactory.h"

namespace kmv::macos {

class MacMainQueue;

/// A serial queue of the platform's, the library's own or a host's.
class MacSerialQueue final : public SerialQueue, public std::enable_shared_from_this<MacSerialQueue> {
 public:
  /// Takes over the caller's reference. REQUIRES: `queue` runs one task at a time.
  explicit MacSerialQueue(dispatch_queue_t queue);
  ~MacSerialQueue() override;
  MacSerialQueue(const MacSerialQueue&) = delete;
  MacSerialQueue& operator=(const MacSerialQueue&) = delete;

  const std::string& label() const override { return label_; }
  void async(Task task) override;
  /// What waits in a circle through other threads is a silent deadlock, as on the platform.
  void sync(TaskReference task) override;
  /// The platform may let a delay last 5 to 10 % longer. 20 years are the upper bound.
  void after(std::chrono::nanoseconds delay, Task task) override;
  bool isCurrent() const override;

  dispatch_queue_t queue() const { return queue_; }

 private:
  struct Posted;
  struct Call;
  Posted* post(Task&& task);
  static void runPosted(void* posted) noexcept;
  static void runCall(void* call) noexcept;

  const dispatch_queue_t queue_;
  const std::string label_;
};

/// Lifetime: a released queue lives on until its tasks have run.
/// Failure: an exception out of an asynchronous task stops the process with a message that names the queue.
class MacQueueFactory final : public QueueFactory {
 public:
  MacQueueFactory();
  ~MacQueueFactory() override;

  std::shared_ptr<SerialQueue> makeSerialQueue(
      std::string label, QualityOfService quality = QualityOfService::unspecified) override;
  std::shared_ptr<ConcurrentQueue> makeConcurrentQueue(
      std::string label, QualityOfService quality = QualityOfService::unspecified) override;
  MainQueue& mainQueue() override;

  static std::shared_ptr<SerialQueue> makeQueue(const std::string& label, QualityOfService quality);

 private:
  std::shared_ptr<MacMainQueue> mainQueue_;
};

/// The platform's queue behind `queue`, borrowed; null for another backend's.
dispatch_queue_t dispatchQueueOf(const SerialQueue& queue);

/// The time `delay` from now; at most 20 years, since the platform takes what it cannot count for "never" and
/// drops the task silently.
dispatch_time_t timeAfter(std::chrono::nanoseconds delay);

}  // namespace kmv::macos
