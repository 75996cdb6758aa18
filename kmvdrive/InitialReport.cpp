// SPDX-License-Identifier: MIT
#include "kmvdrive/InitialReport.h"

#include <KMVDriveLibrary/Degradation.h>
#include <KMVDriveLibrary/FirstList.h>
#include <KMVDriveLibrary/KMVDiskArbiter.h>

#include <chrono>
#include <cstdio>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "kmvdrive/DisplayText.h"

namespace kmv::tool {
namespace {

using Clock = EventLoop::Clock;

// The library holds a disk back for five seconds at most while its signature is read, and then announces it
// without; one more second for what follows.
constexpr std::chrono::seconds kLimit{6};
// After this, what cannot be read is told instead of waited for.
constexpr std::chrono::milliseconds kPatienceWhenDegraded{200};

/// The mount points of the volumes that were mounted at the start, still are, and were not registered: one that left
/// before stays on the list for ever.
std::string notRegistered() {
  auto& arbiter = KMVDiskArbiter::sharedInstance();
  std::string points;
  for (const URL& url : arbiter.disksAlreadyMountedAtInit()->snapshot()) {
    if (arbiter.forceReadDetailsOfDriveMountedAtPath(url.path()) != nullptr)
      points += (points.empty() ? "" : ", ") + visibleText(url.path());
  }
  return points;
}

}  // namespace

bool awaitInitialReport(EventLoop& loop) {
  const auto isOver =
      std::make_shared<std::optional<bool>>();  // outlives this call: the program may end first
  whenFirstListIsComplete(kLimit, [isOver](bool isComplete) { *isOver = isComplete; });
  for (auto look = Clock::now() + kPatienceWhenDegraded; !isOver->has_value();) {
    const Wake wake = loop.wait(look);
    if (wake == Wake::stopRequested || wake == Wake::outputClosed) return false;
    if (Clock::now() < look) continue;
    if (!degradations().empty()) break;
    look += kPatienceWhenDegraded;
  }
  if (!isOver->value_or(true)) {
    if (const std::string points = notRegistered(); !points.empty())
      std::fprintf(stderr, "kmvdrive: not identified in time: %s\n", points.c_str());
  }
  warnOfDegradations();
  return true;
}

bool warnOfDegradations() {
  static std::set<std::string> told;
  const auto present = degradations();
  for (const std::string& what : present) {
    if (told.insert(what).second)
      std::fprintf(stderr, "kmvdrive: degraded: %s; what is told may be incomplete or wrong\n", what.c_str());
  }
  return !present.empty();
}

void addDegradations(JSON& document) {
  if (const auto present = degradations(); !present.empty()) document["degraded"] = present;
}

}  // namespace kmv::tool
