// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Export.h>

#include <chrono>
#include <functional>

namespace kmv {

/// Calls `handler` once, as soon as every disk that was there when the registry started has been registered and its
/// drive announced (true), or `limit` has passed (false). After the first list is complete, at once.
/// Starts the registry if nobody did. A disk that is still being identified is waited for, on Linux for five seconds
/// at most; what the library cannot read at present is not: ask `degradations`.
/// macOS has no word for the end of its report: the list counts as complete when no disk appeared for 200 ms.
/// Thread: any. `handler` runs on the main queue, behind the announcements of these drives.
/// Ownership: `handler` is kept until it was called.
KMV_EXPORT void whenFirstListIsComplete(std::chrono::nanoseconds limit,
                                        std::function<void(bool isComplete)> handler);

/// The same for a program without a loop of its own: runs the main queue on the calling thread meanwhile, observers
/// included, and returns what the handler would get.
/// Thread: as `MainQueue::run`, and not from a task of the main queue.
KMV_EXPORT bool waitForFirstList(std::chrono::nanoseconds limit);

}  // namespace kmv
