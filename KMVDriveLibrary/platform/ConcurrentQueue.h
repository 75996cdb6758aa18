// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Queue.h>

#include <string>

namespace kmv {

/// A labelled queue whose tasks may run beside each other. Every member may be called from any thread.
class ConcurrentQueue {
 public:
  virtual ~ConcurrentQueue() = default;
  virtual const std::string& label() const = 0;
  /// Runs `task` later; returns at once.
  virtual void async(SerialQueue::Task task) = 0;
};

}  // namespace kmv
