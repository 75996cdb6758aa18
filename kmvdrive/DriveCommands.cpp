// SPDX-License-Identifier: MIT
// Which drives there are, and which of them holds a file.
#include <KMVDriveLibrary/Degradation.h>
#include <KMVDriveLibrary/DescriptionKeys.h>
#include <KMVDriveLibrary/Exception.h>
#include <KMVDriveLibrary/HiddenMounts.h>
#include <KMVDriveLibrary/KMVDiskArbiter.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdio>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "kmvdrive/CodexFeed.h"
#include "kmvdrive/CommandLine.h"
#include "kmvdrive/DriveFacts.h"
#include "kmvdrive/InitialReport.h"

namespace kmv::tool {
namespace {

// --- list ---

struct ListOptions {
  bool json = false;
  bool all = false;
  bool verbose = false;
};

/// A snapshot of what the registry knows.
struct Listing {
  MountedDictionaries drives;
  KMVDiskArbiter::UnmountedDictionaries unmounted;
  std::vector<HiddenMount> hidden;
  MountEvents events;                                       // with `--verbose`
  std::optional<std::map<std::string, CodexStatus>> codex;  // by path; none without `--verbose`

  const CodexStatus* codexVolume(const Dictionary& drive) const {
    const URL* url = drive.url(key::kVolumePath);
    if (!codex || url == nullptr) return nullptr;
    const auto found = codex->find(url->path());
    return found == codex->end() ? nullptr : &found->second;
  }
};

/// For a volume that answers this is ample; one that hangs is not waited for.
constexpr std::chrono::seconds kPatienceWithVolumes{2};

/// What the Codex volumes among the drives say, and their sizes as far as they come in time. None when the
/// program is to end.
std::optional<std::map<std::string, CodexStatus>> askCodexVolumes(EventLoop& loop,
                                                                  const MountedDictionaries& drives) {
  std::map<std::string, CodexStatus> volumes;
  CodexFeed feed([&](const CodexStatus& status) { volumes[status.path] = status; });
  for (const auto& [url, drive] : drives) feed.ask(*drive);
  const auto limit = EventLoop::Clock::now() + kPatienceWithVolumes;
  while (feed.isWaiting()) {
    const Wake wake = loop.wait(limit);
    if (wake == Wake::deadline) break;
    if (wake != Wake::worked) return std::nullopt;
  }
  return volumes;
}

JSON jsonOfHiddenMounts(const std::vector<HiddenMount>& mounts) {
  JSON array = JSON::array();
  for (const auto& [path, kind, rule] : mounts)
    array.push_back({{"path", path}, {"kind", kind}, {"rule", rule}});
  return array;
}

JSON jsonOf(const MountEvents& events) {
  return {{"watcher", events.watcher}, {"reason", events.reason}, {"missed", events.missed}};
}

std::string listingAsJSON(const Listing& listing, const ListOptions& options) {
  JSON document = {{"schema", 1}, {"drives", JSON::array()}, {"unmounted", JSON::array()}};
  for (const auto& [url, drive] : listing.drives) {
    JSON described = jsonOfDrive(*drive);
    if (const CodexStatus* codex = listing.codexVolume(*drive))
      described["codex"] = jsonOfCodexVolume(*codex);
    document["drives"].push_back(std::move(described));
  }
  for (const auto& description : listing.unmounted)
    document["unmounted"].push_back(jsonOfDrive(*description));
  if (options.verbose && !listing.events.watcher.empty()) document["mountEvents"] = jsonOf(listing.events);
  if (options.all) document["hidden"] = jsonOfHiddenMounts(listing.hidden);
  addDegradations(document);
  return jsonLine(document);
}

std::string drivesAsTable(const Listing& listing, const Style& style) {
  if (listing.drives.empty()) return degradations().empty() ? "No drives are mounted.\n" : "";
  const Columns which = listing.codex ? Columns::mountedVerbose : Columns::mounted;
  auto columns = driveColumns(which);
  if (listing.codex) columns.push_back({"CODEX"});
  Table table(std::move(columns));
  for (const auto& [url, drive] : listing.drives) {
    auto row = driveCells(which, *drive);
    const CodexStatus* codex = listing.codexVolume(*drive);
    if (listing.codex) row.push_back(codex == nullptr ? std::string() : codexText(*codex));
    table.addRow(std::move(row));
  }
  return table.text(style);
}

std::string unmountedAsTable(const Listing& listing, const Style& style) {
  if (listing.unmounted.empty()) return {};
  const Columns which = listing.codex ? Columns::unmountedVerbose : Columns::unmounted;
  auto columns = driveColumns(which);
  columns.front().heading = "NOT MOUNTED";
  Table table(std::move(columns));
  for (const auto& description : listing.unmounted) table.addRow(driveCells(which, *description));
  return "\n" + table.text(style);
}

std::string hiddenAsTable(const Listing& listing, const Style& style) {
  if (listing.hidden.empty()) return {};
  Table table({{"HIDDEN MOUNT"}, {"KIND"}, {"RULE"}});
  for (const auto& [path, kind, rule] : listing.hidden) table.addRow({path, kind, rule});
  return "\n" + table.text(style);
}

/// "Mount events: listmount (fanotify: Operation not permitted), 2 missed".
std::string mountEventsAsText(const MountEvents& events) {
  if (events.watcher.empty()) return {};
  std::string text = "\nMount events: " + events.watcher;
  if (!events.reason.empty()) text += " (" + events.reason + ")";
  if (events.missed != 0) text += ", " + std::to_string(events.missed) + " missed";
  return text + "\n";
}

/// Some platforms report whole disks and unknown partitions too, as not mountable: those are no volumes.
KMVDiskArbiter::UnmountedDictionaries unmountedVolumes(const KMVDiskArbiter& arbiter) {
  auto volumes = arbiter.unmountedDictionaries();
  std::erase_if(volumes, [](const auto& disk) { return disk->boolValue(key::kVolumeMountable) == false; });
  return volumes;
}

ExitCode list(CommandContext& context, const ListOptions& options) {
  if (!awaitInitialReport(context.loop)) return ExitCode::ok;
  const KMVDiskArbiter& arbiter = KMVDiskArbiter::sharedInstance();
  Listing listing{arbiter.mountedDictionaries(), unmountedVolumes(arbiter), {}, {}, {}};
  if (options.verbose) {
    listing.codex = askCodexVolumes(context.loop, listing.drives);
    if (!listing.codex) return ExitCode::ok;
    listing.events = mountEvents();
  }
  if (options.all) listing.hidden = hiddenMounts();
  context.output.write(
      options.json ? listingAsJSON(listing, options)
                   : drivesAsTable(listing, context.style) + unmountedAsTable(listing, context.style) +
                         hiddenAsTable(listing, context.style) + mountEventsAsText(listing.events));
  return ExitCode::ok;
}

// --- where ---

struct WhereOptions {
  std::string path;
  bool json = false;
};

DictionarySnapshot driveThatHolds(const std::string& path) {
  KMVDiskArbiter& arbiter = KMVDiskArbiter::sharedInstance();
  arbiter.startArbiter();  // a drive that it has not heard of yet is registered by the question
  try {
    const auto location = locationOf(path);
    const auto drive = location ? arbiter.findRootMountDictionaryForURL(location) : nullptr;
    return drive == nullptr ? nullptr : drive->snapshot();
  } catch (const Exception&) {
    return nullptr;
  }
}

std::string driveAsTable(const Dictionary& drive, const Style& style) {
  Table table(driveColumns(Columns::mounted));
  table.addRow(driveCells(Columns::mounted, drive));
  return table.text(style);
}

ExitCode where(CommandContext& context, const WhereOptions& options) {
  const DictionarySnapshot drive = driveThatHolds(options.path);
  if (drive == nullptr) {
    std::fprintf(stderr, "kmvdrive: \"%s\" is on no drive\n", visibleText(options.path).c_str());
    return ExitCode::notFound;
  }
  context.output.write(options.json ? jsonLine(jsonOfDrive(*drive)) : driveAsTable(*drive, context.style));
  return ExitCode::ok;
}

}  // namespace

void addListCommand(CLI::App& app, Action& chosen) {
  CLI::App* command = app.add_subcommand("list", "Show the drives that are attached now");
  const auto options = optionsOf(*command, chosen, list);
  command->add_flag("--json", options->json, "Print one JSON object");
  command->add_flag("--all", options->all, "Show also the mounts that are no drives, and why they are not");
  command->add_flag("-v,--verbose", options->verbose,
                    "Ask Codex volumes for their state and size; tell how mounts are heard of");
}

void addWhereCommand(CLI::App& app, Action& chosen) {
  CLI::App* command = app.add_subcommand("where", "Show the drive that holds a file");
  const auto options = optionsOf(*command, chosen, where);
  command->add_option("PATH", options->path, "The file; it need not exist yet")->required();
  command->add_flag("--json", options->json, "Print one JSON object");
}

}  // namespace kmv::tool
