// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Export.h>
#include <KMVDriveLibrary/Queue.h>
#include <KMVDriveLibrary/Value.h>

#include <memory>
#include <optional>

// macOS only: the library's values and queues as the platform's, for hosts that use both.
// Pointers are CoreFoundation references and dispatch queues; no header of the platform is included.
// Thread: any.

namespace kmv {

/// The value of a property-list object; none for null, for CFNull and for a URL without text.
/// An object of another type becomes an `Object` that retains it.
/// Owner of `object`: the caller.
KMV_EXPORT std::optional<Value> valueOfCF(const void* object);

/// A new object with this value; null for an `Object` of the host's own and for text that is no UTF-8.
/// Owner: the caller, who releases it.
KMV_EXPORT const void* createCFValue(const Value& value);

/// A serial dispatch queue of the host's as a queue of the library's, which retains it.
/// REQUIRES: `dispatchQueue` is neither null nor a concurrent or a global queue.
KMV_EXPORT std::shared_ptr<SerialQueue> serialQueueOver(void* dispatchQueue);

/// The dispatch queue behind `queue`; null for a queue of another platform.
/// Owner: `queue`; retain it to keep it.
KMV_EXPORT void* dispatchQueueOf(const SerialQueue& queue);

}  // namespace kmv
