// SPDX-License-Identifier: MIT
// What a changed description means: a mount, an unmount, a rename, or nothing.
#include <KMVDriveLibrary/DescriptionKeys.h>
#include <KMVDriveLibrary/KMVDiskArbiter.h>
#include <KMVDriveLibrary/KMVDriveKeys.h>
#include <KMVDriveLibrary/NotificationCenter.h>

#include <algorithm>
#include <optional>
#include <string>

#include "arbiter/Descriptions.h"
#include "arbiter/WriterLock.h"

namespace {

using kmv::ChangedKeys;
using kmv::Dictionary;
using kmv::URL;

/// Which of the keys that matter changed.
struct Changes {
  explicit Changes(const ChangedKeys& keys)
      : uuid(has(keys, kmv::key::kVolumeUUID)),
        path(has(keys, kmv::key::kVolumePath)),
        appearance(has(keys, kmv::key::kAppearanceTime)),
        name(has(keys, kmv::key::kVolumeName)) {}

  bool uuid, path, appearance, name;

 private:
  static bool has(const ChangedKeys& keys, std::string_view key) {
    return std::find(keys.begin(), keys.end(), key) != keys.end();
  }
};

/// The first present drive that agrees with the description in each of volume UUID and appearance time that
/// did not change. The path would be a third criterion when it did not change, but then nothing follows
/// whichever drive is found. REQUIRES: one of the two did not change.
KMVDiskArbiter::Drive changedDrive(const KMVDiskArbiter& arbiter, const Dictionary& description,
                                   const Changes& changes) {
  const auto present = arbiter.presentDiskDictionaries();
  if (present == nullptr) return nullptr;
  std::string uuid;  // an absent UUID counts as the empty text
  if (const kmv::UUID* known = description.uuid(kmv::key::kVolumeUUID)) uuid = known->string();
  const double time = description.doubleValue(kmv::key::kAppearanceTime);
  KMVDiskArbiter::Drive drive;
  arbiter.assetMutexQueue()->sync([&] {
    drive = present->firstMatching(changes.uuid ? std::nullopt : std::optional<std::string_view>(uuid),
                                   changes.appearance ? std::nullopt : std::optional<double>(time));
  });
  return drive;
}

/// Moves whatever is present under `oldPath` to `newPath`, as it stands: the key of a renamed drive is not
/// standardised, on purpose. When nothing is there any more, nothing is left under `newPath` either.
void moveInLists(const KMVDiskArbiter& arbiter, const std::optional<URL>& oldPath, const URL& newPath) {
  kmv::WriterLock writer(arbiter);
  arbiter.assetMutexQueue()->sync([&] {
    const auto mounted = arbiter.volumeURLsCurrentlyMounted();
    const auto present = arbiter.presentDiskDictionaries();
    const auto drive = oldPath ? present->find(*oldPath) : nullptr;
    if (oldPath) present->remove(*oldPath);
    present->set(newPath, drive);
    if (oldPath) mounted->remove(*oldPath);
    mounted->add(newPath);
  });
}

/// Copies the changed entries into the drive, which keeps its old path under a key of its own.
void updateRenamedDrive(kmv::DriveDictionary& drive, const std::optional<URL>& oldPath,
                        const Dictionary& description, const ChangedKeys& changedKeys) {
  drive.update([&](Dictionary& contents) {
    if (oldPath) contents.set(kDiskOldURLKey, *oldPath);
    for (const std::string& key : changedKeys) {
      if (const kmv::Value* value = description.find(key)) {
        contents.set(key, *value);
      } else {
        contents.remove(key);
      }
    }
  });
}

/// The drive stays the same object under its new key; posted on the caller's thread.
void renameDrive(const KMVDiskArbiter& arbiter, const KMVDiskArbiter::Drive& drive,
                 const std::optional<URL>& oldPath, const URL& newPath, const Dictionary& description,
                 const ChangedKeys& changedKeys) {
  updateRenamedDrive(*drive, oldPath, description, changedKeys);
  moveInLists(arbiter, oldPath, newPath);
  kmv::NotificationCenter::defaultCenter().post(
      {std::string(kDiskArbiterChangedDiskDetectedNotification), drive, nullptr});
}

}  // namespace

void KMVDiskArbiter::diskDidChangeWithDictionary(const kmv::DictionarySnapshot& description,
                                                 const kmv::ChangedKeys& changedKeys) {
  if (description == nullptr) return;
  if (description == nullptr) return;
  const Changes changes(changedKeys);
  // All three: a different disk, left to the disappeared and appeared events. Without a new path nothing
  // follows: changes of name, kind or anything else leave the registry alone, on purpose.
  if (!changes.path || (changes.uuid && changes.appearance)) return;

  const double time = description->doubleValue(kmv::key::kAppearanceTime);
  if (unmountedDiskDictionaries()->takeFirstWithAppearanceTime(time) != nullptr) {
    addDiskWithRepresentationToTheList(description);
    return;
  }
  const Drive drive = changedDrive(*this, *description, changes);
  if (drive == nullptr) return;

  const auto oldPath = kmv::urlUnder(kDiskURLKey, *drive->snapshot());
  if (const URL* newPath = description->url(kmv::key::kVolumePath)) {
    // A new path alone is no rename: intended.
    if (changes.name) renameDrive(*this, drive, oldPath, *newPath, *description, changedKeys);
    return;
  }
  if (oldPath) removeDiskAtURLFromTheList(*oldPath);
  unmountedDiskDictionaries()->append(description);  // outside the asset queue, like every edit of this list
}
