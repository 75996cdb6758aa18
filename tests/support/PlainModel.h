// SPDX-License-Identifier: MIT
#pragma once

#include "support/Testing.h"

namespace kmv::simulation {

using Lines = std::vector<std::string>;

/// The registry's rules, written down as plainly as possible.
class PlainModel {
 public:
  static constexpr char kPath[] = "DAVolumePath", kUUID[] = "DAVolumeUUID", kTime[] = "DAAppearanceTime";
  using Drive = std::shared_ptr<Dictionary>;

  void appeared(const Dictionary& d) {
    const URL* path = d.url(kPath);
    if (path && present.count(standard(*path))) return;
    if (!d.contains("DAVolumeMountable")) return;
    if (!path) return unmounted.push_back(d);
    const auto holds = [&](const char* key, bool value) {
      return d.contains(key) && d.find(key)->boolValue() == value;
    };
    const auto drive = std::make_shared<Dictionary>(d);
    drive->set("DAMediaRemovableActual", holds("DADeviceInternal", false) || holds("DAVolumeNetwork", true) ||
                                             holds("DAMediaEjectable", true));
    drive->set("diskMountedPriorToApplicationInstance", false);
    if (d.uuid(kUUID)) drive->set("driveUUIDKey", uuidText(d));
    present[standard(*path)] = drive;
    urls.insert(standard(*path));
    const std::string* kind = d.text("DAVolumeKind");
    if (kind == nullptr || *kind != "odaudf") later.push_back("new");
  }

  void disappeared(const Dictionary& d) {
    if (const URL* path = d.url(kPath)) return removeAtURL(*path);
    if (takeUnmounted(d.doubleValue(kTime)) || !d.uuid(kUUID)) return;
    const auto found = std::find_if(present.begin(), present.end(), [&](const auto& entry) {
      const std::string* uuid = entry.second->text("driveUUIDKey");
      return uuid && *uuid == uuidText(d);
    });
    if (found == present.end()) return;
    const Drive drive = found->second;
    if (const URL* path = drive->url(kPath)) takeOut(*path);
    now.push_back("removed " + pathText(*drive));
  }

  void changed(const Dictionary& d, const ChangedKeys& keys) {
    const std::set<std::string> changed(keys.begin(), keys.end());
    if (!changed.count(kPath) || (changed.count(kUUID) && changed.count(kTime))) return;
    if (takeUnmounted(d.doubleValue(kTime))) return appeared(d);
    const auto found = std::find_if(present.begin(), present.end(), [&](const auto& entry) {
      return (changed.count(kUUID) || uuidText(d) == uuidText(*entry.second)) &&
             (changed.count(kTime) || d.doubleValue(kTime) == entry.second->doubleValue(kTime));
    });
    if (found == present.end()) return;
    const Drive drive = found->second;
    std::optional<URL> old;
    if (const URL* url = drive->url(kPath)) old = *url;
    if (d.url(kPath) == nullptr) {
      if (old) removeAtURL(*old);
      return unmounted.push_back(d);
    }
    if (changed.count("DAVolumeName")) renamed(drive, old, d, keys);
  }

  std::map<URL, Drive> present;
  std::set<URL> urls;
  std::vector<Dictionary> unmounted;
  Lines now, later;

 private:
  static URL standard(const URL& url) {
    std::string path = url.path();
    if (const auto at = path.find("//"); at != std::string::npos) path.erase(at, 1);
    return URL::fileURLWithPath(path, url.hasDirectoryPath());
  }
  static std::string uuidText(const Dictionary& d) { return d.uuid(kUUID) ? d.uuid(kUUID)->string() : ""; }
  static std::string pathText(const Dictionary& d) { return d.url(kPath) ? d.url(kPath)->path() : ""; }

  void takeOut(URL key) {
    urls.erase(key);
    present.erase(key);
  }
  bool takeUnmounted(double time) {
    const auto found = std::find_if(unmounted.begin(), unmounted.end(),
                                    [&](const Dictionary& d) { return d.doubleValue(kTime) == time; });
    if (found == unmounted.end()) return false;
    unmounted.erase(found);
    return true;
  }
  void removeAtURL(const URL& url) {
    const bool isKey = present.count(standard(url));
    if (!isKey && !present.count(url)) return;
    const Drive found = present[isKey ? standard(url) : url];
    later.push_back("removed " + pathText(*found));
    if (isKey) return takeOut(standard(url));
    if (const URL* own = found->url(kPath)) takeOut(*own);
  }
  void renamed(const Drive& drive, const std::optional<URL>& old, const Dictionary& d,
               const ChangedKeys& keys) {
    const URL to = *d.url(kPath);
    if (old) drive->set("driveOldURLKey", *old);
    for (const std::string& key : keys) d.contains(key) ? drive->set(key, *d.find(key)) : drive->remove(key);
    const Drive moved = old && present.count(*old) ? present[*old] : nullptr;
    if (old) takeOut(*old);
    present.erase(to);
    if (moved) present[to] = moved;
    urls.insert(to);
    now.push_back("changed " + to.path());
  }
};

/// Printed, since NaN is unequal to itself.
template <typename Drives, typename Descriptions>
Lines printed(const Drives& drives, const std::set<URL>& urls, const Descriptions& unmounted) {
  Lines lines;
  for (const auto& [key, contents] : drives) {
    Dictionary own = *contents;
    own.remove("kDiskWrapperKey");  // the wrapper manager's
    lines.push_back(key.absoluteString() + Value(own).description());
  }
  for (const URL& url : urls) lines.push_back(url.absoluteString());
  for (const Dictionary& description : unmounted) lines.push_back(Value(description).description());
  return lines;
}

}  // namespace kmv::simulation
