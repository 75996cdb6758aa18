// SPDX-License-Identifier: MIT
#include "platform/linux/session/CommandThreads.h"

#include <KMVDriveLibrary/Mutex.h>

#include <algorithm>
#include <deque>
#include <optional>
#include <set>
#include <utility>

#include "platform/linux/queues/Threads.h"

namespace kmv {

struct CommandThreads::State {
  struct Command {
    std::uint64_t volume;
    std::function<void()> run;
  };

  Mutex mutex;
  ConditionVariable ended;
  std::deque<Command> waiting KMV_GUARDED_BY(mutex);
  std::set<std::uint64_t> busy KMV_GUARDED_BY(mutex);  // volumes whose command runs
  int threads KMV_GUARDED_BY(mutex) = 0;

  /// The first whose volume is free.
  std::optional<Command> takeNext() KMV_REQUIRES(mutex) {
    for (auto next = waiting.begin(); next != waiting.end(); ++next) {
      if (!busy.insert(next->volume).second) continue;
      Command command = std::move(*next);
      waiting.erase(next);
      return command;
    }
    return std::nullopt;
  }

  bool isFree(std::uint64_t volume) const KMV_REQUIRES(mutex) {
    return !busy.contains(volume) &&
           std::none_of(waiting.begin(), waiting.end(),
                        [&](const Command& command) { return command.volume == volume; });
  }

  void work() {
    MutexLock lock(mutex);
    while (auto command = takeNext()) {
      lock.unlock();
      command->run();
      command->run = nullptr;  // whatever it holds goes before its end is told
      lock.lock();
      busy.erase(command->volume);
    }
    --threads;
    ended.notifyAll();
  }
};

CommandThreads::CommandThreads() : state_(std::make_shared<State>()) {}

CommandThreads::~CommandThreads() {
  State& state = *state_;
  MutexLock lock(state.mutex);
  state.waiting.clear();
  while (state.threads != 0) state.ended.wait(lock);
}

/// Under the lock, so that no other command counts on a thread that cannot be started.
bool CommandThreads::start(std::uint64_t volume, std::function<void()> command) {
  State& state = *state_;
  const MutexLock lock(state.mutex);
  const bool needsThread = state.isFree(volume) && state.threads < kMostAtOnce;
  state.waiting.push_back({volume, std::move(command)});
  if (!needsThread) return true;
  auto own = std::make_unique<std::shared_ptr<State>>(state_);
  if (!startDetachedThread("kmv-command", body, own.get())) {
    state.waiting.pop_back();
    return false;
  }
  (void)own.release();  // the thread's own now
  ++state.threads;
  return true;
}

void CommandThreads::body(void* thread) {
  const std::unique_ptr<std::shared_ptr<State>> own(static_cast<std::shared_ptr<State>*>(thread));
  (*own)->work();
}

}  // namespace kmv
