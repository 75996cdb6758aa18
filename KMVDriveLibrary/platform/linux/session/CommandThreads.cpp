// SPDX-License-Identifier: MIT
#include "platform/linux/session/CommandThreads.h"

#include <condition_variable>
#include <mutex>
#include <utility>

#include "platform/linux/queues/Threads.h"

namespace kmv {

struct CommandThreads::State {
  std::mutex mutex;
  std::condition_variable ended;
  int running = 0;

  void begin() {
    const std::lock_guard lock(mutex);
    ++running;
  }
  void end() {
    const std::lock_guard lock(mutex);
    --running;
    ended.notify_all();
  }
};

struct CommandThreads::Job {
  std::shared_ptr<State> state;
  std::function<void()> command;
};

CommandThreads::CommandThreads() : state_(std::make_shared<State>()) {}

CommandThreads::~CommandThreads() {
  std::unique_lock lock(state_->mutex);
  state_->ended.wait(lock, [this] { return state_->running == 0; });
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
