// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/host/CrossAppKit.h>

#include <mutex>
#include <utility>

#include "platform/Platform.h"

IOActivityUpdate::~IOActivityUpdate() = default;

URLActivityUpdate::URLActivityUpdate(kmv::URL fileURL, std::int64_t read, std::int64_t written)
    : url(std::move(fileURL)), bytesRead(read), bytesWritten(written) {}
URLActivityUpdate::~URLActivityUpdate() = default;

ApplicationIOTrackingDelegate& ApplicationIOTrackingDelegate::shared() {
  static auto* delegate =
      new ApplicationIOTrackingDelegate;  // never destroyed: any thread may publish until the end
  return *delegate;
}

void ApplicationIOTrackingDelegate::addUpdateHandler(UpdateHandler handler) {
  static std::mutex additions;  // readers take the list as a whole
  const std::lock_guard lock(additions);
  const auto known = handlers_.get();
  auto all = known == nullptr ? std::vector<UpdateHandler>() : *known;
  all.push_back(std::move(handler));
  handlers_.set(std::make_shared<const std::vector<UpdateHandler>>(std::move(all)));
}

void ApplicationIOTrackingDelegate::publish(const Update& update) {
  const auto handlers = handlers_.get();
  if (handlers == nullptr) return;
  for (const UpdateHandler& handler : *handlers) handler(update);
}

CrossAppFileManager& CrossAppFileManager::defaultManager() {
  static auto* manager =
      new CrossAppFileManager;  // never destroyed: any thread may ask until the process is gone
  return *manager;
}

std::optional<kmv::URL> CrossAppFileManager::standardizedVolumeRootForFilePathURL(const kmv::URL& url) const {
  if (const VolumeRoot replacement = volumeRoot_.get()) return replacement(url);
  const auto volume = kmv::Platform::current().fileSystem().volumeURL(url);
  return volume ? std::optional(kmv::URLByStandardizingPath(*volume)) : std::nullopt;
}

void CrossAppFileManager::setStandardizedVolumeRootForFilePathURL(VolumeRoot function) {
  volumeRoot_.set(std::move(function));
}
