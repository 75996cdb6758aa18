// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <string>

#include "platform/QueueFactory.h"

namespace kmv {

class LinuxMainQueue;

/// The queues of a Linux process: serial queues whose `sync` runs on the calling thread and whose `async`
/// uses the workers of WorkerPool.h, and a main queue that the host runs.
///
/// Order: strictly FIFO, whether a task was handed over by `async` or waits in `sync`.
/// Lifetime: a released queue lives on until its tasks have run. Who is inside `sync` must keep the queue.
/// Failure: an exception out of an asynchronous task stops the process with a message that names the queue.
class LinuxQueueFactory : public QueueFactory {
 public:
  LinuxQueueFactory();
  ~LinuxQueueFactory() override;

  std::shared_ptr<SerialQueue> makeSerialQueue(std::string label,
                                               QualityOfService = QualityOfService::unspecified) override;
  std::shared_ptr<ConcurrentQueue> makeConcurrentQueue(
      std::string label, QualityOfService = QualityOfService::unspecified) override;

  /// `sync` on it waits until the main thread comes to it; on a thread that would have to run the queue
  /// itself, but is not inside one of its tasks, that is a deadlock.
  MainQueue& mainQueue() override;

 private:
  std::shared_ptr<LinuxMainQueue> mainQueue_;
};

}  // namespace kmv
