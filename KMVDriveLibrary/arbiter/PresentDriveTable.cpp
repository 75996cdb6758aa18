// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/DescriptionKeys.h>
#include <KMVDriveLibrary/Mutex.h>
#include <KMVDriveLibrary/PresentDriveTable.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <unordered_map>
#include <unordered_set>

#include "arbiter/Descriptions.h"
#include "base/DriveDictionaryWatcher.h"

namespace kmv {
namespace {

constexpr char kDriveUUID[] = "driveUUIDKey";

/// The keys of the drives whose content holds a certain value, in ascending order.
template <typename Field>
class Index {
 public:
  void add(const Field& field, const URL& key) { keys_[field].insert(key); }
  void remove(const Field& field, const URL& key) {
    const auto it = keys_.find(field);
    it->second.erase(key);
    if (it->second.empty()) keys_.erase(it);
  }
  template <typename Wanted>
  const URL* first(const Wanted& wanted) const {
    const auto it = keys_.find(wanted);
    return it == keys_.end() ? nullptr : &*it->second.begin();
  }

 private:
  std::map<Field, std::set<URL>, std::less<>> keys_;
};

/// What a drive is found by, as its content says at one moment.
struct Fields {
  explicit Fields(const Dictionary& contents)
      : path(urlUnder(key::kVolumePath, contents)),
        appearanceTime(contents.doubleValue(key::kAppearanceTime)) {
    if (const std::string* text = contents.text(kDriveUUID)) driveUUID = *text;
    if (const UUID* uuid = contents.uuid(key::kVolumeUUID)) volumeUUID = uuid->string();
  }
  /// NaN is unordered and equals nothing.
  bool hasAppearanceTime() const { return !std::isnan(appearanceTime); }
  friend bool operator==(const Fields&, const Fields&) = default;

  std::optional<std::string> driveUUID;
  std::optional<URL> path;
  std::string volumeUUID;  // empty when there is none
  double appearanceTime;
};

}  // namespace

class PresentDriveTable::Core : public DriveDictionary::Watcher, public std::enable_shared_from_this<Core> {
 public:
  void contentsChanged(const DriveDictionary* drive) override {
    const MutexLock lock(mutex_);
    if (keysOfDrive_.count(drive) != 0)
      changed_.insert(drive);  // it may have left the table meanwhile (race)
  }

  Drive find(const URL& key) const {
    const MutexLock lock(mutex_);
    const auto it = byKey_.find(key);
    return it == byKey_.end() ? nullptr : it->second->second.drive;
  }

  bool remove(const URL& key) {
    Drive last;  // may be the last reference: let go of outside the lock
    const MutexLock lock(mutex_);
    const auto it = slots_.find(key);
    if (it == slots_.end()) return false;
    unindex(it->first, it->second.fields);
    forget(it->second.drive.get(), key);
    last = std::move(it->second.drive);
    byKey_.erase(key);
    slots_.erase(it);
    return true;
  }

  void set(const URL& key, Drive drive) {
    remove(key);
    if (drive == nullptr) return;
    const MutexLock lock(mutex_);
    if (keysOfDrive_.count(drive.get()) == 0)
      drive->addWatcher(shared_from_this());  // before the content is read
    Fields fields(*drive->snapshot());
    index(key, fields);
    keysOfDrive_.emplace(drive.get(), key);
    const auto slot = slots_.insert_or_assign(key, Slot{std::move(drive), std::move(fields)}).first;
    byKey_.insert_or_assign(slot->first, slot);
  }

  std::size_t count() const {
    const MutexLock lock(mutex_);
    return slots_.size();
  }

  template <typename Visit>
  void forEach(const Visit& visit) const {
    const MutexLock lock(mutex_);
    for (const auto& [key, slot] : slots_) visit(key, slot.drive);
  }

  Drive firstWithUUID(std::string_view uuid) {
    const MutexLock lock(mutex_);
    followChanges();
    return driveUnder(byDriveUUID_.first(uuid));
  }
  Drive firstWithVolumePath(const URL& path) {
    const MutexLock lock(mutex_);
    followChanges();
    return driveUnder(byPath_.first(path));
  }
  Drive firstMatching(std::optional<std::string_view> uuid, std::optional<double> time) {
    if (time && std::isnan(*time)) return nullptr;
    const MutexLock lock(mutex_);
    followChanges();
    if (uuid && time) return driveUnder(byTimeAndVolumeUUID_.first(std::pair(*time, std::string(*uuid))));
    if (time) return driveUnder(byTime_.first(*time));
    return uuid ? driveUnder(byVolumeUUID_.first(*uuid)) : nullptr;
  }

 private:
  struct Slot {
    Drive drive;
    Fields fields;  // as they are indexed
  };

  Drive driveUnder(const URL* key) const KMV_REQUIRES(mutex_) {
    return key == nullptr ? nullptr : slots_.find(*key)->second.drive;
  }

  void index(const URL& key, const Fields& fields) KMV_REQUIRES(mutex_) {
    if (fields.driveUUID) byDriveUUID_.add(*fields.driveUUID, key);
    if (fields.path) byPath_.add(*fields.path, key);
    byVolumeUUID_.add(fields.volumeUUID, key);
    if (!fields.hasAppearanceTime()) return;
    byTime_.add(fields.appearanceTime, key);
    byTimeAndVolumeUUID_.add({fields.appearanceTime, fields.volumeUUID}, key);
  }

  void unindex(const URL& key, const Fields& fields) KMV_REQUIRES(mutex_) {
    if (fields.driveUUID) byDriveUUID_.remove(*fields.driveUUID, key);
    if (fields.path) byPath_.remove(*fields.path, key);
    byVolumeUUID_.remove(fields.volumeUUID, key);
    if (!fields.hasAppearanceTime()) return;
    byTime_.remove(fields.appearanceTime, key);
    byTimeAndVolumeUUID_.remove({fields.appearanceTime, fields.volumeUUID}, key);
  }

  void forget(DriveDictionary* drive, const URL& key) KMV_REQUIRES(mutex_) {
    const auto [first, last] = keysOfDrive_.equal_range(drive);
    const auto it = std::find_if(first, last, [&](const auto& entry) { return entry.second == key; });
    if (it != last) keysOfDrive_.erase(it);
    if (keysOfDrive_.count(drive) != 0) return;
    drive->removeWatcher(this);
    changed_.erase(drive);
  }

  /// Updates the indices lazily, once for each drive whose content changed since the last look-up, however
  /// often it was written to.
  void followChanges() KMV_REQUIRES(mutex_) {
    for (const DriveDictionary* drive : changed_) {
      const auto [first, last] = keysOfDrive_.equal_range(drive);
      for (auto it = first; it != last; ++it) {
        Slot& slot = slots_.find(it->second)->second;
        Fields fields(*slot.drive->snapshot());
        if (fields == slot.fields) continue;
        unindex(it->second, slot.fields);
        index(it->second, fields);
        slot.fields = std::move(fields);
      }
    }
    changed_.clear();
  }

  mutable Mutex mutex_;
  std::map<URL, Slot> slots_ KMV_GUARDED_BY(mutex_);  // in the order of enumeration
  // Look-ups by key take this one: hashing beats comparing paths from their beginnings.
  std::unordered_map<URL, std::map<URL, Slot>::iterator> byKey_ KMV_GUARDED_BY(mutex_);
  std::unordered_multimap<const DriveDictionary*, URL> keysOfDrive_ KMV_GUARDED_BY(mutex_);
  // Deduplicated, and only drives of the table: the number of drives is its upper bound when nobody looks up.
  std::unordered_set<const DriveDictionary*> changed_ KMV_GUARDED_BY(mutex_);
  Index<std::string> byDriveUUID_ KMV_GUARDED_BY(mutex_);
  Index<URL> byPath_ KMV_GUARDED_BY(mutex_);
  Index<std::string> byVolumeUUID_ KMV_GUARDED_BY(mutex_);
  Index<double> byTime_ KMV_GUARDED_BY(mutex_);
  Index<std::pair<double, std::string>> byTimeAndVolumeUUID_ KMV_GUARDED_BY(mutex_);
};

PresentDriveTable::PresentDriveTable() : core_(std::make_shared<Core>()) {}
PresentDriveTable::~PresentDriveTable() = default;

PresentDriveTable::Drive PresentDriveTable::find(const URL& key) const {
  return core_->find(key);
}
void PresentDriveTable::set(const URL& key, Drive drive) {
  core_->set(key, std::move(drive));
}
bool PresentDriveTable::remove(const URL& key) {
  return core_->remove(key);
}
std::size_t PresentDriveTable::count() const {
  return core_->count();
}

std::vector<PresentDriveTable::Entry> PresentDriveTable::snapshot() const {
  std::vector<Entry> entries;
  core_->forEach([&](const URL& key, const Drive& drive) { entries.emplace_back(key, drive); });
  return entries;
}

MountedDictionaries PresentDriveTable::copies() const {
  std::vector<MountedDictionaries::Entry> entries;
  entries.reserve(core_->count());
  core_->forEach([&](const URL& key, const Drive& drive) { entries.emplace_back(key, drive->snapshot()); });
  return MountedDictionaries(std::move(entries));
}

PresentDriveTable::Drive PresentDriveTable::firstWithUUID(std::string_view driveUUID) const {
  return core_->firstWithUUID(driveUUID);
}
PresentDriveTable::Drive PresentDriveTable::firstWithVolumePath(const URL& path) const {
  return core_->firstWithVolumePath(path);
}
PresentDriveTable::Drive PresentDriveTable::firstMatching(std::optional<std::string_view> volumeUUID,
                                                          std::optional<double> appearanceTime) const {
  return core_->firstMatching(volumeUUID, appearanceTime);
}

}  // namespace kmv
