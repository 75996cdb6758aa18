// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/FirstList.h>
#include <KMVDriveLibrary/KMVDiskArbiter.h>
#include <KMVDriveLibrary/Mutex.h>

#include <memory>
#include <utility>

#include "arbiter/PresentDisksTold.h"
#include "platform/TimedAnswer.h"

namespace kmv {
namespace {

struct FirstList {
  Mutex mutex;
  bool isComplete KMV_GUARDED_BY(mutex) = false;
  TimedAnswers<bool> waiting KMV_GUARDED_BY(mutex);
};

/// Never destroyed: the platform may call until the process ends.
FirstList& firstList() {
  static auto* const list = new FirstList;
  return *list;
}

}  // namespace

/// The announcements of these drives are on the main queue by now.
void presentDisksTold(void*) {
  const MutexLock lock(firstList().mutex);
  firstList().isComplete = true;
  firstList().waiting.give(true);
}

void whenFirstListIsComplete(std::chrono::nanoseconds limit, std::function<void(bool isComplete)> handler) {
  KMVDiskArbiter::sharedInstance().startArbiter();
  const auto waiting = std::make_shared<TimedAnswer<bool>>(std::move(handler));
  const MutexLock lock(firstList().mutex);
  if (firstList().isComplete) return waiting->give(true);
  firstList().waiting.add(waiting);
  waiting->limit(limit, false);
}

bool waitForFirstList(std::chrono::nanoseconds limit) {
  bool isComplete = false;
  whenFirstListIsComplete(limit, [&isComplete](bool complete) {
    isComplete = complete;
    mainQueue().stop();
  });
  mainQueue().run();
  return isComplete;
}

}  // namespace kmv
