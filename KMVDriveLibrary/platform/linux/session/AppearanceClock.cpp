// SPDX-License-Identifier: MIT
#include "platform/linux/session/AppearanceClock.h"

#include <KMVDriveLibrary/Mutex.h>
#include <KMVDriveLibrary/Value.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>

namespace kmv {

double nextAppearanceTime() {
  static Mutex mutex;
  static double last = 0;
  const std::chrono::duration<double> now = std::chrono::system_clock::now().time_since_epoch();
  const MutexLock lock(mutex);
  // Equal times would make unrelated disks one; at the start many are seen within a microsecond.
  last =
      std::max(now.count() - Date::kReferenceDate, std::nextafter(last, std::numeric_limits<double>::max()));
  return last;
}

}  // namespace kmv
