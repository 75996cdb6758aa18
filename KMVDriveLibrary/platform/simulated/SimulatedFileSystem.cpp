// SPDX-License-Identifier: MIT
#include "platform/simulated/SimulatedFileSystem.h"

#include <set>
#include <string_view>

#include "platform/simulated/SimulatedClock.h"

namespace kmv::simulated {

void SimulatedFileSystem::setAnswerTime(simulation::DiskId volume, std::chrono::nanoseconds time) {
  if (time <= std::chrono::nanoseconds::zero()) {
    answerTimes_.erase(volume);
  } else {
    answerTimes_[volume] = time;
  }
}

void SimulatedFileSystem::forget(simulation::DiskId volume) {
  answerTimes_.erase(volume);
  spaces_.erase(volume);
  items_.unmount(volume);
  items_.forget(volume);
}

void SimulatedFileSystem::waitFor(const std::string& path, Asks asks) const {
  scheduler_.requireOwnThread();
  if (answerTimes_.empty()) return;
  std::vector<Place> places;
  items_.resolve(path, ItemTree::Missing::isKept, &places);
  std::set<simulation::DiskId> asked;
  for (const auto& [volume, rest] : places) {
    if (volume && (asks == Asks::alsoForRoots || !rest.empty())) asked.insert(*volume);
  }
  for (const simulation::DiskId volume : asked) {
    const auto time = answerTimes_.find(volume);
    if (time != answerTimes_.end()) scheduler_.waitInTask("an item \"" + path + "\"", time->second);
  }
}

std::vector<URL> SimulatedFileSystem::mountedVolumeURLs() {
  scheduler_.requireOwnThread();
  std::vector<URL> urls;
  if (simulation::ArmedFaults::strikes(faults_.mountedVolumeLists)) return urls;
  mounts().forEachReachable([&urls](simulation::DiskId, const URL& url) { urls.push_back(url); });
  return urls;
}

std::vector<HiddenMount> SimulatedFileSystem::hiddenMounts() {
  scheduler_.requireOwnThread();
  std::vector<HiddenMount> hidden = hiddenMounts_;
  for (HiddenMount& mount : mounts().hidden()) hidden.push_back(std::move(mount));
  return hidden;
}

std::optional<Space> SimulatedFileSystem::spaceAt(const std::string& path) {
  waitFor(path);
  const auto resolved = items_.resolve(path, ItemTree::Missing::isNone);
  const auto volume = resolved ? mounts().placeOf(*resolved).first : std::nullopt;
  const auto space = volume ? spaces_.find(*volume) : spaces_.end();
  return space == spaces_.end() ? std::nullopt : std::optional(space->second);
}

std::optional<URL> SimulatedFileSystem::volumeURL(const URL& url) {
  if (!url.isFileURL()) return std::nullopt;
  waitFor(url.path(), Asks::belowRoots);
  const auto resolved = items_.resolve(url.path(), ItemTree::Missing::isNone);
  if (!resolved) return std::nullopt;
  const auto holder = mounts().placeOf(*resolved).first;
  // The machine itself is no drive.
  return holder ? *mounts().mountPoint(*holder) : URL::fileURLWithPath("/", /*isDirectory=*/true);
}

FileBytes SimulatedFileSystem::readRegularFile(const std::string& path, std::size_t mostBytes) {
  waitFor(path);
  const std::string* const contents = items_.contentsOfFile(path);
  if (contents == nullptr)
    return {{}, items_.exists(path) ? FileBytes::Failure::unreadable : FileBytes::Failure::missing};
  return contents->size() > mostBytes ? FileBytes{} : FileBytes{*contents, {}};
}

std::unique_ptr<FileStream> SimulatedFileSystem::openForReading(const std::string& path) {
  class Stream final : public FileStream {
   public:
    explicit Stream(std::string bytes) : bytes_(std::move(bytes)) {}
    std::optional<std::string> read(std::size_t mostBytes) override {
      std::string part = bytes_.substr(at_, mostBytes);
      at_ += part.size();
      return part;
    }

   private:
    std::string bytes_;
    std::size_t at_ = 0;
  };
  waitFor(path);
  const auto resolved = items_.realPath(path);
  const std::string* const contents = resolved ? items_.contentsOfFile(*resolved) : nullptr;
  return contents == nullptr ? nullptr : std::make_unique<Stream>(*contents);
}

ItemKind SimulatedFileSystem::itemKind(const std::string& path) {
  waitFor(path);
  return items_.kindOf(path);
}

std::optional<Dictionary> SimulatedFileSystem::attributesOfItem(const std::string& path) {
  waitFor(path);
  const auto size = items_.sizeOf(path);
  if (!size) return std::nullopt;
  const bool isFolder = items_.kindOf(path) == ItemKind::folder;
  return Dictionary{{"NSFileSize", isFolder ? 0 : *size},
                    {"NSFileModificationDate", Date{SimulatedClock::kStart}},
                    {"NSFileType", isFolder ? "NSFileTypeDirectory" : "NSFileTypeRegular"}};
}

struct SimulatedFileSystem::Walk {
  const std::string& attribute;
  const VisitFile& visit;
  const Walk* outer;        // of the folder around
  std::string folder = {};  // resolved
};

void SimulatedFileSystem::visitEachFile(const std::string& folder, const std::string& attribute,
                                        const VisitFile& visit) {
  waitFor(folder);
  if (const auto resolved = items_.realPath(folder)) walk({attribute, visit, nullptr}, folder, *resolved);
}

bool SimulatedFileSystem::walk(const Walk& around, const std::string& shownPath,
                               const std::string& resolvedFolder) {
  for (const Walk* outer = &around; outer != nullptr; outer = outer->outer) {
    if (outer->folder == resolvedFolder) return true;
  }
  const Walk here{around.attribute, around.visit, &around, resolvedFolder};
  for (const std::string& name : items_.list(resolvedFolder)) {
    if (name.starts_with("._")) continue;
    const std::string path = shownPath + "/" + name;
    switch (items_.kindOf(path)) {
      case ItemKind::none:
        break;
      case ItemKind::folder:
        if (!walk(here, path, *items_.realPath(path))) return false;
        break;
      case ItemKind::file: {
        const std::uint64_t size = items_.sizeOf(path).value_or(0);
        const bool asks = size == 0 && !here.attribute.empty();
        const auto value = asks ? items_.attribute(path, here.attribute) : std::nullopt;
        if (!here.visit({path, size, value ? std::optional<std::string_view>(*value) : std::nullopt}))
          return false;
        break;
      }
    }
  }
  return true;
}

std::optional<std::string> SimulatedFileSystem::realPath(const std::string& path) {
  waitFor(path);
  return items_.realPath(path);
}

const std::vector<std::string>& SimulatedFileSystem::pathAliasPrefixes() {
  static const std::vector<std::string> prefixes{"/private/var/automount", "/var/automount", "/private"};
  return prefixes;
}

}  // namespace kmv::simulated
