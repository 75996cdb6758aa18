// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/AtomicProperty.h>
#include <KMVDriveLibrary/CodexVirtualFileSystemWrapper.h>
#include <KMVDriveLibrary/Exception.h>
#include <KMVDriveLibrary/KMVDiskArbiter.h>
#include <KMVDriveLibrary/KMVDriveKeys.h>
#include <KMVDriveLibrary/NotificationCenter.h>
#include <KMVDriveLibrary/Queue.h>
#include <KMVDriveLibrary/host/OrvaneLogging.h>

#include <array>
#include <atomic>
#include <chrono>
#include <utility>

#include "base/ByteCountText.h"
#include "base/Fatal.h"
#include "codexvfs/CodexFileSizes.h"
#include "codexvfs/CodexVFSState.h"
#include "platform/Platform.h"

namespace {

using kmv::Platform;

/// How long a wrapper waits before it looks again whether its volume is built.
constexpr std::chrono::seconds kTimeBetweenChecks{3};
constexpr char kDocumentName[] = ".codexvfs";

kmv::URL documentOf(const kmv::URL& root) {
  return root.appendingPathComponent(kDocumentName, /*isDirectory=*/false);
}

std::shared_ptr<kmv::SerialQueue> newQueue(const char* label, kmv::QualityOfService quality) {
  return Platform::current().queues().makeSerialQueue(label, quality);
}

void logInfo(const std::string& line) {
  OrvaneLog::defaultLog().logInfo("KMV_CodexVFS-" + line);
}

/// A Boolean, or a number that stands for one: exactly 0 or 1.
bool isTrue(const kmv::Value* value) {
  return value != nullptr && value->isNumber() && value->doubleValue() == 1;
}

/// None where the registry throws: membership answers false when anything is missing.
std::optional<kmv::URL> rootDriveOf(const kmv::URL& url) {
  try {
    return KMVDiskArbiter::sharedInstance().findRootDriveURLForPathURL(url);
  } catch (const kmv::Exception&) {
    return std::nullopt;
  }
}

std::string volumeKindIn(const kmv::Dictionary& drive) {
  const auto key = kDAVolumeKindKey.value();
  const std::string* kind = key ? drive.text(*key) : nullptr;
  return kind == nullptr ? std::string() : *kind;
}

}  // namespace

struct CodexVirtualFileSystemWrapper::Fields {
  explicit Fields(const kmv::URL& root) : vfsRoot(root), vfsState(documentOf(root)) {}

  kmv::AtomicProperty<std::string> driveTypeString{"Codex HDE Virtual FS"};
  std::shared_ptr<kmv::SerialQueue> codexVFSUpdateQueue =
      newQueue("CodexVFSUpdateQueue", kmv::QualityOfService::standard);
  const kmv::URL vfsRoot;
  std::atomic<VirtualFileSystemType> vfsType{VirtualFileSystemType::codexHDE};
  CodexVFSState vfsState;  // confined to the update queue
  const std::chrono::nanoseconds timeBetweenChecks = kTimeBetweenChecks;
  // Set on the size queue and read on the update queue, as the library's contract has it; atomic, so no race.
  std::atomic<bool> sizeIsCalculated{false};
  kmv::AtomicProperty<SizeHandler> sizeUpdated;
  CodexFileSizes sizes;  // confined to the size queue, but for `aggregateSize`
  std::shared_ptr<kmv::SerialQueue> fileSizeCalculationDispatch =
      newQueue("codexVFSFileSizeCalculationQueue", kmv::QualityOfService::standard);

  // Kept as they stand: nothing reads them, and nothing is sent to the queue.
  [[maybe_unused]] const float vfsLoadThreshold = 10.0F;
  [[maybe_unused]] const std::array<const char*, 3> resourceKeysList{
      "NSURLCreationDateKey", "NSURLContentModificationDateKey", "NSURLIsDirectoryKey"};
  std::shared_ptr<kmv::SerialQueue> loadActivityObservationQueue =
      newQueue("CodexVFSLoadActivityObservationQueue", kmv::QualityOfService::background);
};

CodexVirtualFileSystemWrapper::CodexVirtualFileSystemWrapper(const kmv::URL& root)
    : fields_(std::make_unique<Fields>(root)) {}

CodexVirtualFileSystemWrapper::~CodexVirtualFileSystemWrapper() = default;

std::shared_ptr<CodexVirtualFileSystemWrapper> CodexVirtualFileSystemWrapper::initWithRoot(
    const kmv::URL& root) {
  std::shared_ptr<CodexVirtualFileSystemWrapper> wrapper(new CodexVirtualFileSystemWrapper(root));
  wrapper->inspectVFSForLoadActivity();
  wrapper->calculateSize();
  return wrapper;
}

bool CodexVirtualFileSystemWrapper::urlIsInVirtualFileSystem(const kmv::URL& url,
                                                             const kmv::Dictionary& withDictionary) {
  const auto root = rootDriveOf(url);
  if (!root || Platform::current().files().itemKind(documentOf(*root).path()) == kmv::ItemKind::none)
    return false;
  return volumeKindIn(withDictionary).find("fuse") != std::string::npos &&
         !isTrue(withDictionary.find(kDiskLTOArbiterTapeKey));
}

std::string CodexVirtualFileSystemWrapper::driveTypeString() const {
  return fields_->driveTypeString.get();
}
void CodexVirtualFileSystemWrapper::setDriveTypeString(std::string text) {
  fields_->driveTypeString.set(std::move(text));
}
kmv::URL CodexVirtualFileSystemWrapper::vfsRoot() const {
  return fields_->vfsRoot;
}
VirtualFileSystemType CodexVirtualFileSystemWrapper::vfsType() const {
  return fields_->vfsType;
}
void CodexVirtualFileSystemWrapper::setVfsType(VirtualFileSystemType type) {
  fields_->vfsType = type;
}

void CodexVirtualFileSystemWrapper::inspectVFSForLoadActivity() {
  fields_->fileSizeCalculationDispatch->async([self = shared_from_this()] {
    self->fields_->codexVFSUpdateQueue->sync([&] { self->fields_->vfsState.updateFlags(); });
  });
}

void CodexVirtualFileSystemWrapper::updateWrapper(bool shouldUpdateSize) {
  fields_->codexVFSUpdateQueue->async([self = shared_from_this()] { self->fields_->vfsState.updateFlags(); });
  if (shouldUpdateSize) calculateSize();
}

bool CodexVirtualFileSystemWrapper::vfsIsReady() {
  Readiness found;
  fields_->codexVFSUpdateQueue->sync([&] { found = lookWhetherReady(); });
  if (found.hasJustBecomeReady) {
    calculateSize();
    logInfo("Codex built, will now estimate volume size.");
  }
  return found.isReady;
}

/// Runs on the update queue.
CodexVirtualFileSystemWrapper::Readiness CodexVirtualFileSystemWrapper::lookWhetherReady() {
  using Status = CodexVFSFlag::Status;
  CodexVFSState& state = fields_->vfsState;
  if (state.status() == Status::built) {
    logInfo("Codex VFS already built.");
    return {.isReady = true};
  }
  state.updateFlags();
  const bool isReady = state.status() == Status::built;
  if (!isReady) {
    logInfo("Codex VFS will check status after a dealy!");  // spelt so on purpose
    kmv::mainQueue().after(fields_->timeBetweenChecks, [self = shared_from_this()] { self->check(); });
  }
  logInfo(std::string("Codex VFS now built: '") + (isReady ? "true" : "false") + "'.");
  return {.isReady = isReady, .hasJustBecomeReady = isReady};
}

/// Runs on the main queue, which is not to wait for a volume: it asks, and the update queue answers, behind
/// whatever else waits for the volume there. One that hangs holds back its own next check and nothing else.
void CodexVirtualFileSystemWrapper::check() {
  fields_->codexVFSUpdateQueue->async([self = shared_from_this()] {
    const bool hasBecomeReady = self->lookWhetherReady().hasJustBecomeReady;
    // What `calculateSize` would ask when the main queue gets to it, asked here for the same reason.
    const bool isReady = hasBecomeReady && self->lookWhetherReady().isReady;
    kmv::mainQueue().async([self, hasBecomeReady, isReady] {
      if (hasBecomeReady) {
        self->calculateSize(isReady);
        logInfo("Codex built, will now estimate volume size.");
      }
      logInfo("Codex VFS now built after delay!");  // whatever came of it
    });
  });
}

void CodexVirtualFileSystemWrapper::calculateSize() {
  calculateSize(vfsIsReady());
}

void CodexVirtualFileSystemWrapper::calculateSize(bool isReady) {
  if (!isReady) {
    logInfo("Codex VFS Size will not be calculated yet since it is not ready.");
    return;
  }
  logInfo("Will start calculating ready Codex VFS' Size");
  fields_->fileSizeCalculationDispatch->async([self = shared_from_this()] { self->estimateSize(); });
}

void CodexVirtualFileSystemWrapper::estimateSize() {
  if (fields_->sizeIsCalculated) {
    logInfo("Codex VFS Size already calculated");
    return;
  }
  logInfo("Codex VFS size calculation has started");
  const std::string root = fields_->vfsRoot.path();
  const std::int64_t total = fields_->sizes.walk(root);
  logInfo("Finished estimating size " + kmv::byteCountText(total) + " for codex VFS at: `" + root + "`");
  fields_->sizeIsCalculated = true;
  if (const SizeHandler handler = fields_->sizeUpdated.get()) handler(total);
  kmv::NotificationCenter::defaultCenter().post({std::string(virtualFileSystemWrapperHasUpdated),
                                                 std::shared_ptr<kmv::Object>(shared_from_this()), nullptr});
}

bool CodexVirtualFileSystemWrapper::sizeIsCalculated() const {
  bool isCalculated = false;
  fields_->codexVFSUpdateQueue->sync([&] { isCalculated = fields_->sizeIsCalculated; });
  return isCalculated;
}

std::optional<std::int64_t> CodexVirtualFileSystemWrapper::estimatedVFSSize() const {
  std::optional<std::int64_t> size;
  fields_->codexVFSUpdateQueue->sync([&] {
    if (fields_->sizeIsCalculated) size = fields_->sizes.aggregateSize();
  });
  return size;
}

VirtualFileSystemWrapper::SizeHandler CodexVirtualFileSystemWrapper::sizeUpdated() const {
  return fields_->sizeUpdated.get();
}

void CodexVirtualFileSystemWrapper::setSizeUpdated(SizeHandler handler) {
  const bool isSet = handler != nullptr;
  fields_->sizeUpdated.set(std::move(handler));
  if (!isSet) return;
  fields_->fileSizeCalculationDispatch->async([self = shared_from_this()] {
    const SizeHandler present = self->fields_->sizeUpdated.get();
    if (present == nullptr)
      kmv::fatal("CodexVirtualFileSystemWrapper: sizeUpdated was cleared before its first call");
    present(self->fields_->sizes.aggregateSize());
  });
}

std::optional<kmv::Dictionary> CodexVirtualFileSystemWrapper::vfsFileAttributes() const {
  return Platform::current().files().attributesOfItem(fields_->vfsRoot.path());
}

std::optional<kmv::Date> CodexVirtualFileSystemWrapper::vfsLastModifiedDate() const {
  const auto attributes = vfsFileAttributes();
  const kmv::Value* date = attributes ? attributes->find("NSFileModificationDate") : nullptr;
  return date == nullptr || date->asDate() == nullptr ? std::nullopt : std::optional(*date->asDate());
}

std::int64_t CodexVirtualFileSystemWrapper::getFileSizeOfItem(const kmv::URL& at) {
  std::int64_t size = 0;
  fields_->fileSizeCalculationDispatch->sync([&] {
    const std::string path = at.path();
    switch (Platform::current().files().itemKind(path)) {
      case kmv::ItemKind::none:
        break;
      case kmv::ItemKind::folder:
        size = fields_->sizes.walk(path);
        break;
      case kmv::ItemKind::file:
        size = CodexFileSizes::sizeOfFile(at).value_or(0);
        break;
    }
  });
  return size;
}
