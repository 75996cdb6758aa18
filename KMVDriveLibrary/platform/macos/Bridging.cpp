// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/bridging/CoreFoundation.h>

#include "platform/macos/Queues.h"
#include "platform/macos/Values.h"

namespace kmv {

std::optional<Value> valueOfCF(const void* object) {
  return macos::valueOf(object);
}

const void* createCFValue(const Value& value) {
  return macos::createCF(value).release();
}

std::shared_ptr<SerialQueue> serialQueueOver(void* dispatchQueue) {
  auto* const queue = static_cast<dispatch_queue_t>(dispatchQueue);
  dispatch_retain(queue);
  return std::make_shared<macos::MacSerialQueue>(queue);
}

void* dispatchQueueOf(const SerialQueue& queue) {
  return macos::dispatchQueueOf(queue);
}

}  // namespace kmv
