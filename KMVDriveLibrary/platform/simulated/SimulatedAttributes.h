// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/testing/SimulatedPlatform.h>

#include <optional>
#include <string>
#include <vector>

#include "platform/ExtendedAttributes.h"
#include "platform/simulated/SimulatedFileSystem.h"
#include "platform/simulated/SimulatedPrograms.h"

namespace kmv::simulated {

/// The attributes of the simulated file system's items, and the tool that reads and writes them.
class SimulatedAttributes final : public ExtendedAttributes {
 public:
  /// Installs the tool among `programs`.
  SimulatedAttributes(SimulatedFileSystem& fileSystem, SimulatedPrograms& programs);

  std::optional<std::string> get(const std::string& path, const std::string& name) override {
    fileSystem_.waitFor(path);
    return fileSystem_.items().attribute(path, name);
  }
  std::optional<std::vector<std::string>> names(const std::string& path) override;
  bool set(const std::string& path, const std::string& name, const std::string& value) override;
  ChildProcess::Result runTool(const ToolRun& call) override {
    fileSystem_.waitFor(call.path);
    return programs_.run(requestFor(call, call.name));
  }

 private:
  simulation::SimulatedRun tool(const std::vector<std::string>& words);
  simulation::SimulatedRun list(const std::string& path);

  SimulatedFileSystem& fileSystem_;
  SimulatedPrograms& programs_;
};

}  // namespace kmv::simulated
