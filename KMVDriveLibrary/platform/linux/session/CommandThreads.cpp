// SPDX-License-Identifier: MIT
#include "platform/linux/session/CommandThreads.h"

#include <KMVDriveLibrary/Mutex.h>

#include <utility>

#include "platform/linux/queues/Threads.h"

namespace kmv {

struct CommandThreads::State {
  Mutex mutex;
  ConditionVariable ended;
  int running KMV_GUARDED_BY(mutex) = 0;

  void begin() {
    const MutexLock lock(mutex);
    ++running;
  }
  void end() {
    const MutexLock lock(mutex);
    --running;
    ended.notifyAll();
  }
};

struct CommandThreads::Job {
  std::shared_ptr<State> state;
  std::function<void()> command;
};

CommandThreads::CommandThreads() : state_(std::make_shared<State>()) {}

CommandThreads::~CommandThreads() {
  State& state = *state_;
  MutexLock lock(state.mutex);
  while (state.running != 0) state.ended.wait(lock);
}

bool CommandThreads::start(std::function<void()> command) {
  auto job = std::make_unique<Job>(Job{state_, std::move(command)});
  state_->begin();
  if (!startDetachedThread("kmv-command", body, job.get())) {
    state_->end();
    return false;
  }
  (void)job.release();  // the thread's own now
  return true;
}

void CommandThreads::body(void* job) {
  const std::unique_ptr<Job> own(static_cast<Job*>(job));
  own->command();
  own->command = nullptr;  // whatever it holds goes before its end is told
  own->state->end();
}

}  // namespace kmv
