// SPDX-License-Identifier: MIT
#pragma once

#include "kmvdrive/EventLoop.h"
#include "kmvdrive/ValueJSON.h"

namespace kmv::tool {

/// Starts the registry and runs `loop` until it has reported what exists. False when the program is to end
/// first. Observers that are to hear of the report must be added before.
///
/// The platform never says "that was all", so the end is inferred from three signs. Every volume that was
/// mounted at the start and still is has been registered (each registration takes its entry off
/// `disksAlreadyMountedAtInit`); nothing was registered, mounted or not, for a short quiet period (the
/// unmounted disks are on no such list); and the arbiter queue and then the main queue have been drained, so
/// nothing is in flight. A volume that is slow to be identified is waited for as long as the library may hold it
/// back; then a line on stderr names it. A disk that is not mounted and slower than the quiet period is missed:
/// the library names what it holds back only when it is mounted.
bool awaitInitialReport(EventLoop& loop);

/// Says on stderr, once each, what the library cannot read of this machine. True when there is something.
bool warnOfDegradations();

/// Adds the same to `document` as "degraded"; nothing when all can be read.
void addDegradations(JSON& document);

}  // namespace kmv::tool
