// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Queue.h>

#include <string_view>

namespace kmv {

/// Runs an asynchronous task; an exception out of it stops the process with a message that names `queue`.
void runOrStop(const SerialQueue::Task& task, std::string_view queue);

}  // namespace kmv
