// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Queue.h>

#include <memory>
#include <string>

#include "platform/ConcurrentQueue.h"

namespace kmv {

/// How urgent a queue's work is, in the platform's classes.
/// A hint: a platform without such classes ignores it.
/// `core` is unspecified too, for the few queues on which the whole library depends: where threads are bounded,
/// tasks of other queues that wait for volumes do not keep theirs waiting.
enum class QualityOfService {
  unspecified,
  core,
  userInteractive,
  userInitiated,
  standard,
  utility,
  background
};

/// Makes the queues.
/// Every member may be called from any thread.
class QueueFactory {
 public:
  virtual ~QueueFactory() = default;
  /// Runs its tasks one at a time.
  virtual std::shared_ptr<SerialQueue> makeSerialQueue(
      std::string label, QualityOfService quality = QualityOfService::unspecified) = 0;
  /// Runs its tasks concurrently.
  virtual std::shared_ptr<ConcurrentQueue> makeConcurrentQueue(
      std::string label, QualityOfService quality = QualityOfService::unspecified) = 0;
  /// The main queue.
  /// Lifetime: the platform's.
  virtual MainQueue& mainQueue() = 0;
};

}  // namespace kmv
