// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/Mutex.h>
#include <KMVDriveLibrary/host/CrossAppKit.h>

#include <limits>
#include <utility>

#include "base/AttributeNumber.h"
#include "platform/Platform.h"

namespace {

/// True when a component of the path below `folder` begins with a dot.
bool isHiddenBelow(std::string_view folder, std::string_view path) {
  return path.substr(folder.size()).find("/.") != std::string_view::npos;
}

/// Bytes; of the item itself when it is a link.
std::optional<std::uint64_t> sizeOfItem(const std::string& path) {
  const auto attributes = kmv::Platform::current().files().attributesOfItem(path);
  const kmv::Value* size = attributes ? attributes->find("NSFileSize") : nullptr;
  return size == nullptr ? std::nullopt : std::optional(size->unsignedValue());
}

}  // namespace

ExtendedAttributesError::~ExtendedAttributesError() = default;

IOActivityUpdate::~IOActivityUpdate() = default;

URLActivityUpdate::URLActivityUpdate(kmv::URL fileURL, std::int64_t read, std::int64_t written)
    : url(std::move(fileURL)), bytesRead(read), bytesWritten(written) {}
URLActivityUpdate::~URLActivityUpdate() = default;

ApplicationIOTrackingDelegate& ApplicationIOTrackingDelegate::shared() {
  // Never destroyed: any thread may publish until the process ends.
  static auto* delegate = new ApplicationIOTrackingDelegate;
  return *delegate;
}

void ApplicationIOTrackingDelegate::addUpdateHandler(UpdateHandler handler) {
  if (handler == nullptr) return;
  static kmv::Mutex additions;  // serialises the copy-on-write; readers take a snapshot
  const kmv::MutexLock lock(additions);
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
  // Never destroyed: any thread may ask until the process ends.
  static auto* manager = new CrossAppFileManager;
  return *manager;
}

std::optional<kmv::URL> CrossAppFileManager::standardizedVolumeRootForFilePathURL(const kmv::URL& url) const {
  if (const VolumeRoot replacement = volumeRoot_.get()) return replacement(url);
  const auto volume = kmv::Platform::current().volumes().volumeURL(url);
  return volume ? std::optional(kmv::URLByStandardizingPath(*volume)) : std::nullopt;
}

void CrossAppFileManager::setStandardizedVolumeRootForFilePathURL(VolumeRoot function) {
  volumeRoot_.set(std::move(function));
}

std::optional<std::uint64_t> CrossAppFileManager::sizeOfFileAtPath(std::string_view path) const {
  if (const FileSize replacement = fileSize_.get()) return replacement(path);
  return sizeOfItem(std::string(path));
}

void CrossAppFileManager::setSizeOfFileAtPath(FileSize function) {
  fileSize_.set(std::move(function));
}

std::uint64_t CrossAppFileManager::aggregateFileSize(const kmv::URL& ofURL,
                                                     const ShouldContinue& shouldContinue,
                                                     unsigned options) const {
  if (const AggregateFileSize replacement = aggregateFileSize_.get())
    return replacement(ofURL, shouldContinue, options);
  kmv::Platform& platform = kmv::Platform::current();
  const std::string path = ofURL.path();
  if (platform.files().itemKind(path) != kmv::ItemKind::folder) {
    const auto size = sizeOfItem(path);
    if (!size) throw std::runtime_error("there is no item to take the size of");
    return *size;
  }
  std::uint64_t sum = 0;
  platform.treeWalk().visitFiles(path, /*attribute=*/{}, [&](const kmv::WalkedFile& file) {
    if (shouldContinue != nullptr && !shouldContinue()) return false;
    if ((options & kSkipsHiddenFiles) != 0 && isHiddenBelow(path, file.path)) return true;
    if (__builtin_add_overflow(sum, file.size, &sum))
      throw std::runtime_error("the sizes add up to more than a number can hold");
    return true;
  });
  return sum;
}

void CrossAppFileManager::setAggregateFileSize(AggregateFileSize function) {
  aggregateFileSize_.set(std::move(function));
}

std::int64_t CrossAppFileManager::getExtendedAttributeAsInt(const kmv::URL& url,
                                                            std::string_view named) const {
  if (const ExtendedAttributeAsInt replacement = attributeAsInt_.get()) return replacement(url, named);
  const auto value = kmv::Platform::current().extendedAttributes().get(url.path(), std::string(named));
  if (!value) throw ExtendedAttributesError("the attribute cannot be read");
  const auto number = kmv::numberInAttribute(*value);
  if (!number) throw ExtendedAttributesError("the attribute is no integer");
  return *number;
}

void CrossAppFileManager::setGetExtendedAttributeAsInt(ExtendedAttributeAsInt function) {
  attributeAsInt_.set(std::move(function));
}

bool CrossAppFileManager::hasReplacedFileSizes() const {
  return fileSize_.get() != nullptr || aggregateFileSize_.get() != nullptr ||
         attributeAsInt_.get() != nullptr;
}
