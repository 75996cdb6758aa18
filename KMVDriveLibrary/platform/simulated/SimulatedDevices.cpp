// SPDX-License-Identifier: MIT
#include "platform/simulated/SimulatedDevices.h"

#include <algorithm>
#include <utility>

namespace kmv::simulated {

std::unique_ptr<DriveStatisticsReader> SimulatedIORegistry::makeStatisticsReader() {
  return std::make_unique<SimulatedStatisticsReader>(statistics_);
}

SimulatedAttributes::SimulatedAttributes(SimulatedFileSystem& fileSystem) : fileSystem_(fileSystem) {
  fileSystem.setAttributeSource([this](const auto& path, const auto& name) { return get(path, name); });
  programs["/usr/bin/xattr"] = [this](const auto& words) { return runAttributeTool(words); };
}

std::optional<std::string> SimulatedAttributes::get(const std::string& path, const std::string& name) {
  const auto item = fileSystem_.realPath(path);
  if (!item) return std::nullopt;
  const auto& ofItem = values_[*item];
  const auto value = ofItem.find(name);
  return value == ofItem.end() ? std::nullopt : std::optional(value->second);
}

bool SimulatedAttributes::set(const std::string& path, const std::string& name, const std::string& value) {
  const auto item = fileSystem_.realPath(path);
  if (!item || name.empty()) return false;
  values_[*item][name] = value;
  return true;
}

ChildProcess::Result SimulatedAttributes::run(const Request& request) {
  const auto program = programs.find(request.program);
  if (program == programs.end()) return {false, request.program + ": No such file or directory", {}, {}};
  const testing::SimulatedRun run = program->second(request.arguments);
  return {true, {}, run.output + (request.collectsErrors ? run.errors : std::string()), run.exitStatus};
}

/// `-p NAME PATH`, `-l PATH` and `-w NAME VALUE PATH`, as the real one answers.
testing::SimulatedRun SimulatedAttributes::runAttributeTool(const std::vector<std::string>& words) {
  const std::string mode = words.empty() ? std::string() : words.front();
  const std::size_t count = mode == "-p" ? 3 : mode == "-l" ? 2 : mode == "-w" ? 4 : 0;
  if (words.size() != count || count == 0) return {"usage: xattr -p|-l|-w\n", {}, 64};
  const std::string& path = words.back();
  if (!fileSystem_.itemExists(path)) return {{}, "No such file: " + path + "\n", 1};
  if (mode == "-w")
    return set(path, words[1], words[2]) ? testing::SimulatedRun{}
                                         : testing::SimulatedRun{{}, "refused\n", 1};
  if (mode == "-p") {
    const auto value = get(path, words[1]);
    return value ? testing::SimulatedRun{*value + "\n", {}, 0}
                 : testing::SimulatedRun{{}, "No such xattr: " + words[1] + "\n", 1};
  }
  testing::SimulatedRun list;
  for (const auto& [name, value] : values_[*fileSystem_.realPath(path)])
    list.output += name + ": " + value + "\n";
  return list;
}

void SimulatedStatistics::read(DriveStatistics& statistics) {
  statistics.wereDriversFound = lookupsToFail == 0;
  if (lookupsToFail > 0) --lookupsToFail;
  if (!statistics.wereDriversFound) return;
  const auto samePlaces = [](const DriveStatistics& a, const DriveStatistics& b) {
    const auto samePath = [](const auto& x, const auto& y) { return x.path == y.path; };
    const auto sameMedia = [](const auto& x, const auto& y) {
      return x.url == y.url && x.mediaPath == y.mediaPath;
    };
    return std::equal(a.drivers.begin(), a.drivers.end(), b.drivers.begin(), b.drivers.end(), samePath) &&
           std::equal(a.volumes.begin(), a.volumes.end(), b.volumes.begin(), b.volumes.end(), sameMedia);
  };
  DriveStatistics now;
  for (const auto& [path, counters] : drivers) now.drivers.push_back({path, counters});
  fileSystem_.forEachVolume([&](testing::DiskId disk, const URL& url) {
    if (hidden.contains(disk)) return;
    const auto media = mediaPaths.find(disk);
    now.volumes.push_back({url, media == mediaPaths.end() ? std::string() : media->second});
  });
  now.wereDriversFound = true;
  now.generation = samePlaces(statistics, now) ? statistics.generation : statistics.generation + 1;
  statistics = std::move(now);
}

}  // namespace kmv::simulated
