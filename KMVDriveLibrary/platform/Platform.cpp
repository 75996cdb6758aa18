// SPDX-License-Identifier: MIT
#include "platform/Platform.h"

#include <mutex>
#include <utility>

#include "platform/LibraryCopies.h"
#include "platform/NativePlatform.h"

namespace kmv {
namespace {

[[maybe_unused]] const int numberOfThisCopy = ++libraryCopies;

std::mutex& platformMutex() {
  static auto* mutex = new std::mutex;  // never destroyed: queues may run until the process is gone
  return *mutex;
}

std::unique_ptr<Platform>& installedPlatform() {
  static auto* platform = new std::unique_ptr<Platform>;
  return *platform;
}

}  // namespace

Platform& Platform::current() {
  static Platform& platform = []() -> Platform& {
    std::lock_guard lock(platformMutex());
    auto& installed = installedPlatform();
    if (installed == nullptr) installed = makeNativePlatform();
    return *installed;
  }();
  return platform;
}

bool Platform::install(std::unique_ptr<Platform> platform) {
  std::lock_guard lock(platformMutex());
  auto& installed = installedPlatform();
  if (installed != nullptr) return false;
  installed = std::move(platform);
  return true;
}

MainQueue& mainQueue() {
  return Platform::current().queues().mainQueue();
}

std::shared_ptr<SerialQueue> makeSerialQueue(std::string label) {
  return Platform::current().queues().makeSerialQueue(std::move(label));
}

std::vector<HiddenMount> hiddenMounts() {
  return Platform::current().volumes().hiddenMounts();
}

MountEvents mountEvents() {
  return Platform::current().volumes().mountEvents();
}

}  // namespace kmv
