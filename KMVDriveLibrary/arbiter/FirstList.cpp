// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/FirstList.h>
#include <KMVDriveLibrary/KMVDiskArbiter.h>
#include <KMVDriveLibrary/Mutex.h>

#include <memory>
#include <utility>
#include <vector>

#include "arbiter/PresentDisksTold.h"

namespace kmv {
namespace {

/// Somebody waits. `handler` belongs to the main queue.
struct Request {
  std::function<void(bool)> handler;
};

void answer(const std::shared_ptr<Request>& request, bool isComplete) {
  if (const auto handler = std::exchange(request->handler, nullptr)) handler(isComplete);
}

struct FirstList {
  Mutex mutex;
  bool isComplete KMV_GUARDED_BY(mutex) = false;
  std::vector<std::shared_ptr<Request>> waiting KMV_GUARDED_BY(mutex);
};

/// Never destroyed: the platform may call until the process ends.
FirstList& firstList() {
  static auto* const list = new FirstList;
  return *list;
}

}  // namespace

/// The announcements of these drives are on the main queue by now.
void presentDisksTold(void*) {
  std::vector<std::shared_ptr<Request>> waiting;
  {
    const MutexLock lock(firstList().mutex);
    firstList().isComplete = true;
    waiting.swap(firstList().waiting);
  }
  for (auto& request : waiting) mainQueue().async([request] { answer(request, true); });
}

void whenFirstListIsComplete(std::chrono::nanoseconds limit, std::function<void(bool isComplete)> handler) {
  auto request = std::make_shared<Request>(Request{std::move(handler)});
  KMVDiskArbiter::sharedInstance().startArbiter();
  {
    const MutexLock lock(firstList().mutex);
    if (firstList().isComplete) return mainQueue().async([request] { answer(request, true); });
    firstList().waiting.push_back(request);
  }
  mainQueue().after(limit, [request = std::move(request)] {
    {
      const MutexLock lock(firstList().mutex);
      std::erase(firstList().waiting, request);
    }
    answer(request, false);
  });
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
