// SPDX-License-Identifier: MIT
#include "platform/simulated/SimulatedAttributes.h"

namespace kmv::simulated {

using testing::SimulatedRun;

SimulatedAttributes::SimulatedAttributes(SimulatedFileSystem& fileSystem, SimulatedPrograms& programs)
    : fileSystem_(fileSystem), programs_(programs) {
  programs.programs["/usr/bin/xattr"] = [this](const auto& words) { return tool(words); };
}

bool SimulatedAttributes::set(const std::string& path, const std::string& name, const std::string& value) {
  auto* const attributes = name.empty() ? nullptr : fileSystem_.attributesOf(path);
  if (attributes != nullptr) (*attributes)[name] = value;
  return attributes != nullptr;
}

/// `-p NAME PATH`, `-l PATH` and `-w NAME VALUE PATH`, with the real tool's answers.
SimulatedRun SimulatedAttributes::tool(const std::vector<std::string>& words) {
  const std::string mode = words.empty() ? std::string() : words.front();
  const std::size_t count = mode == "-p" ? 3 : mode == "-l" ? 2 : mode == "-w" ? 4 : 0;
  if (words.size() != count || count == 0) return {"usage: xattr -p|-l|-w\n", {}, 64};
  const std::string& path = words.back();
  if (fileSystem_.attributesOf(path) == nullptr) return {{}, "No such file: " + path + "\n", 1};
  if (mode == "-l") return list(path);
  if (mode == "-w") return set(path, words[1], words[2]) ? SimulatedRun{} : SimulatedRun{{}, "refused\n", 1};
  const auto value = get(path, words[1]);
  return value ? SimulatedRun{*value + "\n"} : SimulatedRun{{}, "No such xattr: " + words[1] + "\n", 1};
}

SimulatedRun SimulatedAttributes::list(const std::string& path) {
  SimulatedRun lines;
  for (const auto& [name, value] : *fileSystem_.attributesOf(path))
    lines.output += name + ": " + value + "\n";
  return lines;
}

}  // namespace kmv::simulated
