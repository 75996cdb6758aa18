// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Queue.h>

#include <chrono>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

namespace kmv {

/// A handler that runs once, on the main queue: with the first answer, or with `whenLate` after a time limit.
template <typename Answer>
class TimedAnswer : public std::enable_shared_from_this<TimedAnswer<Answer>> {
 public:
  using Handler = std::function<void(Answer)>;

  explicit TimedAnswer(Handler handler) : handler_(std::move(handler)) {}

  /// Thread: any.
  void give(Answer answer) {
    mainQueue().async([self = this->shared_from_this(), answer] { self->run(answer); });
  }
  void limit(std::chrono::nanoseconds limit, Answer whenLate) {
    mainQueue().after(limit, [self = this->shared_from_this(), whenLate] { self->run(whenLate); });
  }

 private:
  void run(const Answer& answer) {
    if (const auto handler = std::exchange(handler_, nullptr)) handler(answer);
  }

  Handler handler_;  // of the main queue
};

/// Those who wait for one answer. Keeps none beyond its limit. Thread: one at a time.
template <typename Answer>
class TimedAnswers {
 public:
  void add(const std::shared_ptr<TimedAnswer<Answer>>& waiting) {
    std::erase_if(waiting_, [](const auto& one) { return one.expired(); });
    waiting_.push_back(waiting);
  }
  /// Gives it to all that still wait.
  void give(const Answer& answer) {
    for (const auto& one : std::exchange(waiting_, {})) {
      if (const auto waiting = one.lock()) waiting->give(answer);
    }
  }

 private:
  std::vector<std::weak_ptr<TimedAnswer<Answer>>> waiting_;
};

}  // namespace kmv
