// SPDX-License-Identifier: MIT
#pragma once

#include "support/Registry.h"

namespace kmv::simulation {

/// A simulated machine with a FUSE volume at "/Volumes/Codex", and what the library logs.
class CodexVolume : public RegistryTest {
 protected:
  CodexVolume() {
    OrvaneLog::defaultLog().setSink([this](OrvaneLog::Level level, std::string_view line) {
      constexpr const char* kLevels[] = {"debug ", "", "error "};
      log_.push_back(kLevels[static_cast<int>(level)] + std::string(line));
    });
    drive = machine.plugInPathVolume({.mountPoint = root.path(), .name = "Codex", .kind = "fuse.codexvfs"});
    registry.start();
    lines();
  }
  ~CodexVolume() override { OrvaneLog::defaultLog().setSink(nullptr); }

  void write(const std::string& document) { machine.writeFile(root.path() + "/.codexvfs", document); }
  void addEmpty(const std::string& name, const std::string& estimate) {
    machine.createItem(path(name));
    machine.setAttribute(path(name), "codex.estimatedHDESize", estimate);
  }
  std::string path(const std::string& name) const { return root.path() + "/" + name; }
  URL url(const std::string& name) const { return file(path(name)); }

  /// What was logged since the last call.
  Lines lines() { return std::exchange(log_, {}); }

  static constexpr char kBuilt[] = R"({"status":"built"})";
  static constexpr char kInitialising[] = R"({"status":"initialising"})";
  static constexpr std::int64_t kBuiltBytes = sizeof kBuilt - 1;

  const URL root = URL::fileURLWithPath("/Volumes/Codex", /*isDirectory=*/true);
  DiskId drive;

 private:
  Lines log_;
};

}  // namespace kmv::simulation
