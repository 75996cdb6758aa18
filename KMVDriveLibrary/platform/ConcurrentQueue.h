// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Queue.h>

#include <string>

namespace kmv {

/// A labelled queue whose tasks may run concurrently.
/// Every member may be called from any thread.
class ConcurrentQueue {
 public:
  virtual ~ConcurrentQueue() = default;
  virtual const std::string& label() const = 0;
  /// Queues `task`; never blocks.
  virtual void async(SerialQueue::Task task) = 0;
};

}  // namespace kmv
