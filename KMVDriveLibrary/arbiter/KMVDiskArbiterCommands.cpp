// SPDX-License-Identifier: MIT
// What the registry asks of the platform, and how the platform's answers are announced.
#include <KMVDriveLibrary/DescriptionKeys.h>
#include <KMVDriveLibrary/DiskCallbacks.h>
#include <KMVDriveLibrary/KMVDiskArbiter.h>
#include <KMVDriveLibrary/KMVDriveKeys.h>
#include <KMVDriveLibrary/NotificationCenter.h>

#include <memory>
#include <optional>
#include <string>

#include "arbiter/Descriptions.h"
#include "arbiter/KMVDiskArbiterProperties.h"
#include "platform/DiskArbitrationSession.h"

namespace {

/// Where the disk is mounted now; none when it is not, or cannot be described any more.
std::optional<kmv::URL> volumePathOf(const kmv::Disk* disk) {
  const auto description = kmv::descriptionOf(disk);
  return description == nullptr ? std::nullopt : kmv::urlUnder(kmv::key::kVolumePath, *description);
}

/// An absent number counts as 0.
kmv::Value numberIn(const kmv::Dictionary& dissenter, std::string_view key) {
  const kmv::Value* number = dissenter.find(key);
  return number == nullptr ? kmv::Value(0) : *number;
}

/// What the platform hands back with its answer, exactly once.
struct OpenCommand {
  kmv::CommandCompletion completion;
  KMVDiskArbiter* arbiter;
  kmv::OpenWork::Token open;
};

void answer(kmv::Disk* disk, const kmv::Dictionary* dissenter, void* context) {
  const std::unique_ptr<const OpenCommand> command(static_cast<OpenCommand*>(context));
  command->completion(disk, dissenter, command->arbiter);
}

/// The registry as a notification's object, without ownership: a registry outlives its commands.
std::shared_ptr<kmv::Object> borrowed(void* context) {
  return {std::shared_ptr<void>(), static_cast<KMVDiskArbiter*>(context)};
}

}  // namespace

bool KMVDiskArbiter::unmountVolumeAtRootURL(const kmv::URL& url) {
  auto* session = diskArbitrationSession();
  const auto disk = session == nullptr ? nullptr : session->diskFromVolumePath(url);
  if (disk == nullptr) return false;
  session->unmount(*disk, answer, new OpenCommand{DiskUnmountCallback, this, properties_->commands.open()});
  return true;
}

void KMVDiskArbiter::renameDriveWithRootURL(const kmv::URL& url, std::string_view withNewName) {
  auto* session = diskArbitrationSession();
  const auto disk = session == nullptr ? nullptr : session->diskFromVolumePath(url);
  if (disk == nullptr) return;
  session->rename(*disk, std::string(withNewName), answer,
                  new OpenCommand{DiskRenameCallback, this, properties_->commands.open()});
}

void DiskUnmountCallback(kmv::Disk* disk, const kmv::Dictionary* dissenter, void*) {
  if (dissenter == nullptr) return;  // the volume's disappearance is announced in its own way
  const auto rejection = std::make_shared<const kmv::Dictionary>(
      kmv::Dictionary{{"pid", numberIn(*dissenter, kmv::key::kDissenterProcessID)},
                      {"status", numberIn(*dissenter, kmv::key::kDissenterStatus)},
                      {"volName", volumePathOf(disk).value_or(*kmv::URL::fromString("Unknown"))}});
  kmv::NotificationCenter::defaultCenter().post({std::string(kDiskEjectionRejected), rejection, nullptr});
}

void DiskRenameCallback(kmv::Disk* disk, const kmv::Dictionary* dissenter, void* context) {
  kmv::Dictionary userInfo;
  if (auto path = volumePathOf(disk)) userInfo.set(kmv::key::kVolumePath, std::move(*path));
  const auto name = dissenter == nullptr ? kDiskArbiterRenameSucceeded : kDiskArbiterRenameFailed;
  kmv::NotificationCenter::defaultCenter().post(
      {std::string(name), borrowed(context), std::make_shared<const kmv::Dictionary>(std::move(userInfo))});
}
