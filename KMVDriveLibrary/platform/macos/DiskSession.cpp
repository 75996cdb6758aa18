// SPDX-License-Identifier: MIT
#include "platform/macos/DiskSession.h"

#include <DiskArbitration/DiskArbitration.h>
#include <KMVDriveLibrary/DescriptionKeys.h>
#include <KMVDriveLibrary/DissentStatus.h>

#include <cstdint>
#include <utility>

#include "base/Fatal.h"
#include "platform/macos/MacDisk.h"
#include "platform/macos/SessionState.h"
#include "platform/macos/Values.h"

namespace kmv::macos {
namespace {

const CF<DADiskRef>& referenceOf(const Disk& disk) {
  const auto* const ours = dynamic_cast<const MacDisk*>(&disk);
  if (ours == nullptr) fatal("a command needs a disk that diskFromVolumePath gave");
  return ours->reference();
}

/// As the platform makes one: a dictionary.
CF<DADissenterRef> refusal(std::int32_t status) {
  auto record = createCF(Dictionary{{key::kDissenterStatus, status}});
  return CF<DADissenterRef>::adopt(static_cast<DADissenterRef>(record.release()));
}

}  // namespace

DiskSession::DiskSession() : state_(std::make_shared<SessionState>()) {}

DiskSession::~DiskSession() {
  state_->close();
}

void DiskSession::setQueue(std::shared_ptr<SerialQueue> queue) {
  state_->setQueue(std::move(queue));
}

void DiskSession::registerCallbacks(const DiskCallbacks& callbacks, void* context) {
  state_->registerCallbacks(callbacks, context);
}

std::unique_ptr<Disk> DiskSession::diskFromVolumePath(const URL& volume) {
  const auto url = volume.isFileURL() ? createURL(volume) : CF<CFURLRef>();
  if (!url) return nullptr;
  auto found =
      CF<DADiskRef>::adopt(DADiskCreateFromVolumePath(kCFAllocatorDefault, state_->session(), url.get()));
  if (!found) return nullptr;
  auto disk = std::make_unique<MacDisk>(std::move(found));
  return disk->copyDescription() ? std::move(disk) : nullptr;  // a mount that the daemon makes no disk of
}

void DiskSession::unmount(const Disk& disk, CommandCompletion completion, void* context) {
  const auto ask = [](DADiskRef asked, void* command) {
    DADiskUnmount(asked, kDADiskUnmountOptionDefault, &SessionState::answered, command);
  };
  state_->carryOut(referenceOf(disk), ask, completion, context);
}

void DiskSession::rename(const Disk& disk, const std::string& newName, CommandCompletion completion,
                         void* context) {
  const auto ask = [name = createString(newName)](DADiskRef asked, void* command) {
    if (!name) return SessionState::answered(asked, refusal(dissent::kBadArgument).get(), command);
    DADiskRename(asked, name.get(), kDADiskRenameOptionDefault, &SessionState::answered, command);
  };
  state_->carryOut(referenceOf(disk), ask, completion, context);
}

}  // namespace kmv::macos
