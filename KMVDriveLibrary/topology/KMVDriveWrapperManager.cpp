// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/KMVDriveKeys.h>
#include <KMVDriveLibrary/KMVDriveWrapperManager.h>
#include <KMVDriveLibrary/host/OrvaneLogging.h>

#include <algorithm>
#include <string>
#include <utility>

#include "base/Fatal.h"
#include "platform/Platform.h"
#include "topology/CodexWrapperSupply.h"
#include "topology/Names.h"

namespace {

using kmv::topology::textOf;
using kmv::topology::valueUnder;

constexpr std::size_t kSmallestRoom = 64;

std::string textOrNil(const std::optional<kmv::Value>& value) {
  return value ? value->description() : "nil";
}

void logRejection(const kmv::Dictionary& contents, const std::optional<kmv::Value>& name,
                  const std::optional<kmv::Value>& unit) {
  const OrvaneLog& log = OrvaneLog::defaultLog();
  if (!log.hasSink())
    return;  // every volume without a device comes here, and a real number's text is slow to make
  log.logDebug("KMV-Could not find either name '" + textOrNil(name) + "' or unit '" + textOrNil(unit) + "'");
  log.logDebug("KMV-RejectedDriveInfo");
  for (const auto& [key, value] : contents)
    log.logDebug("KMV-RejectedDriveInfo: " + key + " : " + value.description());
}

}  // namespace

const std::shared_ptr<KMVDriveWrapperManager>& KMVDriveWrapperManager::shared() {
  // Never destroyed: the registry may announce drives until the process is gone.
  static const auto* const manager =
      new std::shared_ptr<KMVDriveWrapperManager>(std::make_shared<KMVDriveWrapperManager>());
  return *manager;
}

KMVDriveWrapperManager& KMVDriveWrapperManager::sharedInstance() {
  return *shared();
}

KMVDriveWrapperManager::KMVDriveWrapperManager()
    : queue_(kmv::Platform::current().queues().makeSerialQueue("KMVDriveWrapperManagerQueue",
                                                               kmv::QualityOfService::core)),
      codex_(std::make_shared<kmv::topology::CodexWrapperSupply>(queue_)) {}

KMVDriveWrapperManager::~KMVDriveWrapperManager() = default;

KMVDriveWrapperManager::VolumeWrappers KMVDriveWrapperManager::volumeWrappers() const {
  VolumeWrappers alive;
  const kmv::MutexLock lock(mutex_);
  for (const auto& [unit, weak] : rootDisks_) {
    if (auto disk = weak.lock()) alive.emplace_hint(alive.end(), unit, std::move(disk));
  }
  return alive;
}

KMVDriveWrapperManager::VolumeWrappers KMVDriveWrapperManager::allVolumeWrappers() const {
  return volumeWrappers();
}

bool KMVDriveWrapperManager::addInformationAboutDiskDictionary(
    const std::shared_ptr<kmv::DriveDictionary>& drive) {
  if (drive == nullptr)
    kmv::fatal("KMVDriveWrapperManager: addInformationAboutDiskDictionary without a drive");
  // A copy of its own: the wrapper's weak reference is to expire with this call, whoever else holds the
  // drive's content.
  auto contents = std::make_shared<const kmv::Dictionary>(*drive->snapshot());
  const auto unit = valueUnder(kDAMediaBSDUnit, contents);
  const auto name = valueUnder(kDAMediaBSDName, contents);
  if (!unit || !unit->isNumber() || !textOf(name)) {
    logRejection(*contents, name, unit);
    return false;
  }
  KMVRootDiskWrapper::Wrapper wrapper;
  queue_->sync([&] { wrapper = file(*unit, contents); });
  if (wrapper == nullptr) return false;
  drive->set(kDiskWrapperKey, wrapper);
  return true;
}

KMVRootDiskWrapper::Wrapper KMVDriveWrapperManager::file(const kmv::Value& unit,
                                                         const kmv::DictionarySnapshot& contents) {
  return rootDiskOf(unit)->addPartitionRepresentationWithArbiterDict(contents);
}

std::shared_ptr<KMVRootDiskWrapper> KMVDriveWrapperManager::rootDiskOf(const kmv::Value& unit) {
  const kmv::MutexLock lock(mutex_);
  const auto known = rootDisks_.find(unit);
  if (known != rootDisks_.end()) {
    if (auto disk = known->second.lock()) return disk;
  } else if (rootDisks_.size() >= roomBeforeSweep_) {
    // Sweeps out units that are gone; amortised over the additions since the last sweep.
    std::erase_if(rootDisks_, [](const auto& entry) { return entry.second.expired(); });
    roomBeforeSweep_ = std::max(kSmallestRoom, 2 * rootDisks_.size());
  }
  auto made = std::make_shared<KMVRootDiskWrapper>(unit);
  rootDisks_.insert_or_assign(unit, made);
  return made;
}

KMVDriveWrapperManager::CodexVFSWrappers KMVDriveWrapperManager::codexVFSWrappers() const {
  return codex_->wrappers();
}

void KMVDriveWrapperManager::codexVFSWrapper(const kmv::URL& location, kmv::Dictionary arbiterDict,
                                             bool /*requireIsReady*/, WrapperSupply wrapperSupply) {
  codex_->request(location, std::move(arbiterDict), std::move(wrapperSupply));
}
