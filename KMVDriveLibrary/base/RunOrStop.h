// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Export.h>
#include <KMVDriveLibrary/Queue.h>

#include <string_view>

namespace kmv {

/// Runs an asynchronous task of a queue. An exception out of it has no caller that it could propagate to: it stops
/// the process with a message that names the queue, on every backend.
KMV_EXPORT void runOrStop(const SerialQueue::Task& task, std::string_view label);

}  // namespace kmv
