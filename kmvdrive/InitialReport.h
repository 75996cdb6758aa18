// SPDX-License-Identifier: MIT
#pragma once

#include "kmvdrive/EventLoop.h"
#include "kmvdrive/ValueJSON.h"

namespace kmv::tool {

/// Starts the registry and runs `loop` until the first list is complete. False when the program is to end first.
/// Observers that are to hear of the report must be added before.
/// A disk that is slow to be identified is waited for as long as the library may hold it back; then a line on stderr
/// names what is missing. What cannot be read is told, but not waited for.
bool awaitInitialReport(EventLoop& loop);

/// Says on stderr, once each, what the library cannot read of this machine. True when there is something.
bool warnOfDegradations();

/// Adds the same to `document` as "degraded"; nothing when all can be read.
void addDegradations(JSON& document);

}  // namespace kmv::tool
