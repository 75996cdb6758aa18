// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/Mutex.h>
#include <KMVDriveLibrary/Space.h>

#include <map>
#include <memory>
#include <string>
#include <utility>

#include "platform/Platform.h"
#include "platform/TimedAnswer.h"

namespace kmv {
namespace {

/// The questions in flight, each with those who wait for its answer.
class SpaceQuestions {
 public:
  /// Never destroyed: a volume may answer until the process ends.
  static SpaceQuestions& shared() {
    static auto* const questions = new SpaceQuestions;
    return *questions;
  }

  void ask(const std::string& path, const std::shared_ptr<TimedAnswer<std::optional<Space>>>& waiting) {
    const MutexLock lock(mutex_);
    const auto [question, isNew] = open_.try_emplace(path);
    question->second.add(waiting);
    if (isNew) queue_->async([this, path] { answer(path, Platform::current().volumes().spaceAt(path)); });
  }

 private:
  void answer(const std::string& path, const std::optional<Space>& space) {
    const MutexLock lock(mutex_);
    open_.extract(path).mapped().give(space);
  }

  const std::shared_ptr<ConcurrentQueue> queue_ =
      Platform::current().queues().makeConcurrentQueue("KMVDriveSpaceQuestions", QualityOfService::utility);
  Mutex mutex_;
  std::map<std::string, TimedAnswers<std::optional<Space>>> open_ KMV_GUARDED_BY(mutex_);
};

}  // namespace

void askForSpace(const URL& place, std::chrono::nanoseconds limit,
                 std::function<void(const std::optional<Space>& space)> handler) {
  const auto waiting = std::make_shared<TimedAnswer<std::optional<Space>>>(std::move(handler));
  if (!place.isFileURL()) return waiting->give(std::nullopt);
  SpaceQuestions::shared().ask(place.path(), waiting);
  waiting->limit(limit, std::nullopt);
}

}  // namespace kmv
