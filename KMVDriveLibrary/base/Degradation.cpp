// SPDX-License-Identifier: MIT
#include "base/Degradation.h"

#include <KMVDriveLibrary/Mutex.h>
#include <KMVDriveLibrary/host/OrvaneLogging.h>

#include <functional>
#include <set>

namespace kmv {
namespace {

struct Degradations {
  Mutex mutex;
  std::set<std::string, std::less<>> all KMV_GUARDED_BY(mutex);
};

Degradations& ofThisProcess() {
  static auto* degradations = new Degradations;  // never destroyed: queues may run until the process is gone
  return *degradations;
}

bool changes(std::string_view what, bool holds) {
  Degradations& known = ofThisProcess();
  const MutexLock lock(known.mutex);
  if (holds) return known.all.emplace(what).second;
  const auto found = known.all.find(what);
  if (found == known.all.end()) return false;
  known.all.erase(found);
  return true;
}

}  // namespace

void setDegraded(std::string_view what, bool holds) {
  if (!changes(what, holds)) return;
  const OrvaneLog& log = OrvaneLog::defaultLog();
  if (holds) {
    log.logError("degraded: " + std::string(what));
  } else {
    log.logInfo("no longer degraded: " + std::string(what));
  }
}

std::vector<std::string> degradations() {
  Degradations& known = ofThisProcess();
  const MutexLock lock(known.mutex);
  return {known.all.begin(), known.all.end()};
}

}  // namespace kmv
