// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/NetServiceBrowser.h>
#include <KMVDriveLibrary/testing/SimulatedPlatform.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/ChildProcess.h"
#include "platform/Clock.h"
#include "platform/ExtendedAttributes.h"
#include "platform/IORegistry.h"
#include "platform/SystemInformation.h"
#include "platform/simulated/Scheduler.h"
#include "platform/simulated/SimulatedFileSystem.h"

namespace kmv::simulated {

class SimulatedStatistics;

/// The services that the test put there, in the order in which it did.
class SimulatedIORegistry final : public IORegistry {
 public:
  std::vector<IOService> servicesMatchingBSDName(const std::string& name) override {
    ++questions;
    return services[name];
  }

  explicit SimulatedIORegistry(SimulatedStatistics& statistics) : statistics_(statistics) {}

  std::unique_ptr<DriveStatisticsReader> makeStatisticsReader() override;

  std::optional<StorageDevice> wholeDisk(const std::string& name) override {
    const auto known = disks.find(name);
    return known == disks.end() ? std::nullopt : std::optional(known->second.whole);
  }
  std::vector<StorageDevice> physicalDisks(const std::string& name) override {
    const auto known = disks.find(name);
    return known == disks.end() ? std::vector<StorageDevice>() : known->second.physical;
  }

  struct Disks {
    StorageDevice whole;
    std::vector<StorageDevice> physical;
  };
  std::map<std::string, Disks> disks;
  std::map<std::string, std::vector<IOService>> services;
  std::size_t questions = 0;

 private:
  SimulatedStatistics& statistics_;
};

/// The drivers that the test put there, and the media of the volumes that are mounted at the moment.
class SimulatedStatistics {
 public:
  explicit SimulatedStatistics(SimulatedFileSystem& fileSystem) : fileSystem_(fileSystem) {}
  void read(DriveStatistics& statistics);

  std::map<std::string, std::optional<DriverCounters>> drivers;
  std::map<testing::DiskId, std::string> mediaPaths;
  std::set<testing::DiskId> hidden;
  int lookupsToFail = 0;

 private:
  SimulatedFileSystem& fileSystem_;
};

class SimulatedStatisticsReader final : public DriveStatisticsReader {
 public:
  explicit SimulatedStatisticsReader(SimulatedStatistics& statistics) : statistics_(statistics) {}
  void read(std::uint32_t, DriveStatistics& statistics) override { statistics_.read(statistics); }

 private:
  SimulatedStatistics& statistics_;
};

class SimulatedClock final : public Clock {
 public:
  /// The wall clock when the machine was made: 2026-01-01 00:00 UTC, in seconds since 2001-01-01.
  static constexpr double kStart = 788'918'400;
  explicit SimulatedClock(const Scheduler& scheduler) : scheduler_(scheduler) {}
  Date now() override { return {kStart + std::chrono::duration<double>(scheduler_.now()).count()}; }
  std::chrono::nanoseconds monotonicNow() override { return scheduler_.now(); }

 private:
  const Scheduler& scheduler_;
};

/// Finds nothing, and notes what it was to look for.
class SimulatedServiceBrowser final : public NetServiceBrowser {
 public:
  explicit SimulatedServiceBrowser(std::vector<std::string>& searches) : searches_(searches) {}
  void setIncludesPeerToPeer(bool includes) override { peerToPeer_ = includes; }
  void setDelegate(NetServiceBrowserDelegate*) override {}
  void searchForServicesOfType(std::string_view type, std::string_view inDomain) override {
    searches_.push_back(std::string(type) + " in \"" + std::string(inDomain) + "\"" +
                        (peerToPeer_ ? " and among peers" : ""));
  }

 private:
  std::vector<std::string>& searches_;
  bool peerToPeer_ = false;
};

/// Attributes of the items of the simulated file system, and programs that the test wrote.
class SimulatedAttributes final : public ExtendedAttributes, public ChildProcess {
 public:
  explicit SimulatedAttributes(SimulatedFileSystem& fileSystem);

  std::optional<std::string> get(const std::string& path, const std::string& name) override;
  bool set(const std::string& path, const std::string& name, const std::string& value) override;
  ChildProcess::Result runTool(const ToolRun& call) override { return run(requestFor(call, call.name)); }
  Result run(const Request& request) override;
  bool exists(const std::string& program) override { return programs.contains(program); }

  std::map<std::string, testing::SimulatedProgram> programs;

 private:
  testing::SimulatedRun runAttributeTool(const std::vector<std::string>& words);

  SimulatedFileSystem& fileSystem_;
  std::map<std::string, std::map<std::string, std::string>> values_;  // by path
};

class SimulatedSystemInformation final : public SystemInformation {
 public:
  OperatingSystemVersion operatingSystemVersion() override { return version; }
  OperatingSystemVersion version;
};

}  // namespace kmv::simulated
