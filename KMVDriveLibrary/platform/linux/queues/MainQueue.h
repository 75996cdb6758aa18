// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Queue.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <exception>
#include <memory>
#include <mutex>
#include <string>

namespace kmv {

/// The main queue of a Linux process; see Queues.h.
class LinuxMainQueue final : public MainQueue, public std::enable_shared_from_this<LinuxMainQueue> {
 public:
  LinuxMainQueue() = default;
  ~LinuxMainQueue() override;
  LinuxMainQueue(const LinuxMainQueue&) = delete;
  LinuxMainQueue& operator=(const LinuxMainQueue&) = delete;

  const std::string& label() const override { return label_; }
  void async(Task task) override;
  void sync(TaskReference task) override;
  void after(std::chrono::nanoseconds delay, Task task) override;
  bool isCurrent() const override;

  void run() override;
  void stop() override;

  /// Inside a task of this queue (a nested loop of the host) nothing runs, and the descriptor stays quiet
  /// until the task ends.
  std::size_t drain() override;
  int fileDescriptor() override;

 private:
  /// A caller of `sync`, on the stack of its thread; guarded by `mutex_`.
  struct Waiter {
    TaskReference task;
    std::condition_variable finished{};
    bool isFinished = false;
    std::exception_ptr exception = nullptr;
  };
  struct Entry {
    Task task;
    Waiter* waiter = nullptr;
  };
  using Lock = std::unique_lock<std::mutex>;

  void append(Entry entry);
  void takeMainThread(const Lock& lock);
  void leaveMainThread(const Lock& lock);
  void runNext(Lock& lock);
  void runEntry(Entry& entry);
  void makeReadable(const Lock& lock);
  void makeUnreadable(const Lock& lock);

  const std::string label_ = "main";
  std::mutex mutex_;
  std::condition_variable wake_;  // of `run`
  std::deque<Entry> entries_;
  bool hasMainThread_ = false;  // someone runs or drains
  bool stopRequested_ = false;
  int descriptor_ = -1;
  bool isReadable_ = false;
};

}  // namespace kmv
