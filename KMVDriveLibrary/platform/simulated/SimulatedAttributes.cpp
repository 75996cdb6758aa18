// SPDX-License-Identifier: MIT
#include "platform/simulated/SimulatedAttributes.h"

namespace kmv::simulated {

using simulation::SimulatedRun;

SimulatedAttributes::SimulatedAttributes(SimulatedFileSystem& fileSystem, SimulatedPrograms& programs)
    : fileSystem_(fileSystem), programs_(programs) {
  programs.programs["/usr/bin/xattr"] = [this](const auto& words) { return tool(words); };
}

std::optional<std::vector<std::string>> SimulatedAttributes::names(const std::string& path) {
  fileSystem_.waitFor(path);
  const auto* const attributes = fileSystem_.items().attributesOf(path);
  if (attributes == nullptr) return std::nullopt;
  std::vector<std::string> names;
  for (const auto& [name, value] : *attributes) names.push_back(name);
  return names;
}

bool SimulatedAttributes::set(const std::string& path, const std::string& name, const std::string& value) {
  fileSystem_.waitFor(path);
  return fileSystem_.items().setAttribute(path, name, value);
}

/// `-p NAME PATH`, `-l PATH` and `-w NAME VALUE PATH`, with the real tool's answers.
SimulatedRun SimulatedAttributes::tool(const std::vector<std::string>& words) {
  const std::string mode = words.empty() ? std::string() : words.front();
  const std::size_t count = mode == "-p" ? 3 : mode == "-l" ? 2 : mode == "-w" ? 4 : 0;
  if (words.size() != count || count == 0) return {"usage: xattr -p|-l|-w\n", {}, 64};
  const std::string& path = words.back();
  const ItemTree& items = fileSystem_.items();
  if (items.attributesOf(path) == nullptr) return {{}, "No such file: " + path + "\n", 1};
  if (mode == "-l") return list(path);
  if (mode == "-w")
    return fileSystem_.items().setAttribute(path, words[1], words[2]) ? SimulatedRun{}
                                                                      : SimulatedRun{{}, "refused\n", 1};
  const auto value = items.attribute(path, words[1]);
  return value ? SimulatedRun{*value + "\n"} : SimulatedRun{{}, "No such xattr: " + words[1] + "\n", 1};
}

SimulatedRun SimulatedAttributes::list(const std::string& path) {
  SimulatedRun lines;
  for (const auto& [name, value] : *fileSystem_.items().attributesOf(path))
    lines.output += name + ": " + value + "\n";
  return lines;
}

}  // namespace kmv::simulated
