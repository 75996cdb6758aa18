// SPDX-License-Identifier: MIT
#pragma once

#include "kmvdrive/EventLoop.h"

namespace kmv::tool {

/// Starts the registry and runs `loop` until it has reported what exists. False when the program is to end
/// first. Observers that are to hear of the report must be added before.
///
/// The platform never says "that was all", so the end is inferred from three signs. Every volume that was
/// mounted at the start has been registered (each registration takes its entry off
/// `disksAlreadyMountedAtInit`); nothing was registered, mounted or not, for a short quiet period (the
/// unmounted disks are on no such list); and the arbiter queue and then the main queue have been drained, so
/// nothing is in flight. A volume that is slow to be identified is waited for up to a limit; then a warning
/// goes to stderr.
bool awaitInitialReport(EventLoop& loop);

}  // namespace kmv::tool
