// SPDX-License-Identifier: MIT
// Which drives there are, and which of them holds a file.
#include <KMVDriveLibrary/Degradation.h>
#include <KMVDriveLibrary/DescriptionKeys.h>
#include <KMVDriveLibrary/Exception.h>
#include <KMVDriveLibrary/HiddenMounts.h>
#include <KMVDriveLibrary/KMVDiskArbiter.h>
#include <KMVDriveLibrary/Space.h>
#include <KMVDriveLibrary/StorageDevices.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "kmvdrive/CodexFeed.h"
#include "kmvdrive/CommandLine.h"
#include "kmvdrive/DriveFacts.h"
#include "kmvdrive/InitialReport.h"
#include "kmvdrive/Screen.h"

namespace kmv::tool {
namespace {

// --- list ---

struct ListOptions {
  bool json = false;
  bool all = false;
  bool verbose = false;
  bool bytes = false;
  std::vector<std::string> columns;
};

/// A snapshot of what the registry knows, by URL, with what the volumes say.
struct Listing {
  std::vector<Dictionary> drives;
  std::vector<Dictionary> unmounted;
  std::vector<HiddenMount> hidden;
  MountEvents events;                        // with `--verbose`
  std::map<std::string, CodexStatus> codex;  // by path; the same

  const CodexStatus* codexVolume(const Dictionary& drive) const {
    const URL* url = drive.url(key::kVolumePath);
    const auto found = url == nullptr ? codex.end() : codex.find(url->path());
    return found == codex.end() ? nullptr : &found->second;
  }
};

/// For a volume that answers this is ample; one that hangs is not waited for.
constexpr std::chrono::seconds kPatienceWithVolumes{2};

/// What the Codex volumes among the drives say, and their sizes as far as they come in time. None when the
/// program is to end.
std::optional<std::map<std::string, CodexStatus>> askCodexVolumes(EventLoop& loop,
                                                                  const std::vector<Dictionary>& drives) {
  std::map<std::string, CodexStatus> volumes;
  CodexFeed feed([&](const CodexStatus& status) { volumes[status.path] = status; });
  for (const Dictionary& drive : drives) feed.ask(drive);
  const auto limit = EventLoop::Clock::now() + kPatienceWithVolumes;
  while (feed.isWaiting()) {
    const Wake wake = loop.wait(limit);
    if (wake == Wake::deadline) break;
    if (wake != Wake::worked) return std::nullopt;
  }
  return volumes;
}

/// Adds the room on each drive that tells it in time. False when the program is to end.
bool addSpace(EventLoop& loop, std::vector<Dictionary>& drives) {
  struct Answers {
    std::vector<std::optional<Space>> spaces;
    std::size_t missing = 0;
  };
  const auto answers = std::make_shared<Answers>();  // outlives this call: the program may end first
  answers->spaces.resize(drives.size());
  for (std::size_t i = 0; i < drives.size(); ++i) {
    const URL* const url = drives[i].url(key::kVolumePath);
    if (url == nullptr) continue;
    ++answers->missing;
    askForSpace(*url, kPatienceWithVolumes, [answers, i](const std::optional<Space>& space) {
      answers->spaces[i] = space;
      --answers->missing;
    });
  }
  while (answers->missing != 0) {
    const Wake wake = loop.wait(std::nullopt);
    if (wake == Wake::stopRequested || wake == Wake::outputClosed) return false;
  }
  for (std::size_t i = 0; i < drives.size(); ++i) {
    if (answers->spaces[i]) setSpace(drives[i], *answers->spaces[i]);
  }
  return true;
}

JSON jsonOfHiddenMounts(const std::vector<HiddenMount>& mounts) {
  JSON array = JSON::array();
  for (const auto& [path, kind, rule] : mounts)
    array.push_back({{"path", path}, {"kind", kind}, {"rule", rule}});
  return array;
}

JSON jsonOfMountEvents(const MountEvents& events) {
  return {{"watcher", events.watcher}, {"reason", events.reason}, {"missed", events.missed}};
}

std::string listingAsJSON(const Listing& listing, const ListOptions& options) {
  JSON document = {{"drives", JSON::array()}, {"unmounted", JSON::array()}};
  for (const Dictionary& drive : listing.drives) {
    JSON described = jsonOfDrive(drive);
    if (const CodexStatus* codex = listing.codexVolume(drive)) described["codex"] = jsonOfCodexVolume(*codex);
    document["drives"].push_back(std::move(described));
  }
  for (const Dictionary& description : listing.unmounted)
    document["unmounted"].push_back(jsonOfDrive(description));
  if (options.verbose && !listing.events.watcher.empty())
    document["mountEvents"] = jsonOfMountEvents(listing.events);
  if (options.all) document["hidden"] = jsonOfHiddenMounts(listing.hidden);
  addDegradations(document);
  return jsonLine(document);
}

/// "sda2" before "sda10", and what has no device last.
bool isEarlierDevice(const Dictionary& a, const Dictionary& b) {
  const auto rank = [](const Dictionary& drive) {
    const std::string* const name = drive.text(key::kMediaBSDName);
    const URL* const url = drive.url(key::kVolumePath);
    const std::string device = name == nullptr ? std::string() : *name;
    const std::size_t number = device.find_last_not_of("0123456789") + 1;  // 0 for npos
    return std::tuple(device.empty(), device.substr(0, number), device.size(), device,
                      url == nullptr ? "" : url->path());
  };
  return rank(a) < rank(b);
}

std::string drivesAsTable(std::vector<Dictionary> drives, const DriveTable& what, const Style& style) {
  std::sort(drives.begin(), drives.end(), isEarlierDevice);
  return tableOf(what, drives).text(style, lineWidth());
}

std::string listingAsText(const Listing& listing, const ListOptions& options, const Style& style) {
  auto drives = listing.drives;
  for (Dictionary& drive : drives) {
    if (const CodexStatus* codex = listing.codexVolume(drive)) drive.set(kCodexKey, codexText(*codex));
  }
  DriveTable what{true, options.verbose, options.bytes, options.columns};
  std::string text;
  if (!drives.empty())
    text = drivesAsTable(std::move(drives), what, style);
  else if (degradations().empty())
    text = "No drives are mounted.\n";
  if (listing.unmounted.empty()) return text;
  what.isOfMounted = false;
  return text + "\n" + style.apply(Style::Look::heading, "Not mounted") + "\n" +
         drivesAsTable(listing.unmounted, what, style);
}

std::string hiddenAsTable(const Listing& listing, const Style& style) {
  if (listing.hidden.empty()) return {};
  Table table({{"HIDDEN MOUNT"}, {"KIND"}, {"RULE"}});
  for (const auto& [path, kind, rule] : listing.hidden) table.addRow({path, kind, rule});
  return "\n" + table.text(style, lineWidth());
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
std::vector<Dictionary> unmountedVolumes(const KMVDiskArbiter& arbiter) {
  std::vector<Dictionary> volumes;
  for (const auto& disk : arbiter.unmountedDictionaries()) {
    if (disk->boolValue(key::kVolumeMountable) != false) volumes.push_back(*disk);
  }
  return volumes;
}

ExitCode list(CommandContext& context, const ListOptions& options) {
  if (!awaitInitialReport(context.loop)) return ExitCode::ok;
  const KMVDiskArbiter& arbiter = KMVDiskArbiter::sharedInstance();
  Listing listing{{}, unmountedVolumes(arbiter), {}, {}, {}};
  for (const auto& [url, drive] : arbiter.mountedDictionaries()) listing.drives.push_back(*drive);
  if (!addSpace(context.loop, listing.drives)) return ExitCode::ok;
  if (options.verbose) {
    auto codex = askCodexVolumes(context.loop, listing.drives);
    if (!codex) return ExitCode::ok;
    listing.codex = std::move(*codex);
    listing.events = mountEvents();
  }
  if (options.all) listing.hidden = hiddenMounts();
  context.output.write(options.json
                           ? listingAsJSON(listing, options)
                           : listingAsText(listing, options, context.style) +
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

/// What lies below the drive; empty when that is not known.
std::vector<StorageDevice> physicalDisksOf(const Dictionary& drive) {
  const std::string* const device = drive.text(key::kMediaBSDName);
  return device == nullptr ? std::vector<StorageDevice>() : physicalDisksBelow(*device);
}

/// "On sda (Cruzer Blade), sdb".
std::string physicalDisksAsText(const std::vector<StorageDevice>& disks) {
  std::string text;
  for (const StorageDevice& disk : disks) {
    text += (text.empty() ? "On " : ", ") + visibleText(disk.name);
    if (!disk.model.empty()) text += " (" + visibleText(disk.model) + ")";
  }
  return text.empty() ? text : text + "\n";
}

ExitCode where(CommandContext& context, const WhereOptions& options) {
  const DictionarySnapshot holder = driveThatHolds(options.path);
  if (holder == nullptr) {
    std::fprintf(stderr, "kmvdrive: \"%s\" is on no drive\n", visibleText(options.path).c_str());
    return ExitCode::notFound;
  }
  std::vector<Dictionary> drive{*holder};
  if (!addSpace(context.loop, drive)) return ExitCode::ok;
  const auto disks = physicalDisksOf(drive.front());
  if (options.json) {
    JSON document = jsonOfDrive(drive.front());
    document["physicalDisks"] = JSON::array();
    for (const StorageDevice& disk : disks) document["physicalDisks"].push_back(disk.name);
    context.output.write(jsonLine(document));
  } else {
    context.output.write(drivesAsTable(drive, {}, context.style) + physicalDisksAsText(disks));
  }
  return ExitCode::ok;
}

/// Refuses the names of columns that there are not.
std::string columnNameError(const std::string& name) {
  const auto known = columnNames();
  if (std::find(known.begin(), known.end(), name) != known.end()) return {};
  std::string all;
  for (const std::string& one : known) all += (all.empty() ? "" : ", ") + one;
  return "\"" + visibleText(name) + "\" is no column; there are " + all;
}

}  // namespace

void addListCommand(CLI::App& app, Action& chosen) {
  CLI::App* command = app.add_subcommand("list", "Show the drives that are attached now");
  const auto options = optionsOf(*command, chosen, list);
  command->add_flag("--json", options->json, "Print one JSON object");
  command->add_flag("--all", options->all, "Show also the mounts that are no drives, and why they are not");
  command->add_flag(
      "-v,--verbose", options->verbose,
      "Ask Codex volumes for their state and size; show more columns, and how mounts are heard of");
  command->add_flag("--bytes", options->bytes, "Print sizes as numbers of bytes");
  command->add_option("-o,--columns", options->columns, "Show these columns, separated by commas")
      ->delimiter(',')
      ->check(columnNameError);
}

void addWhereCommand(CLI::App& app, Action& chosen) {
  CLI::App* command = app.add_subcommand("where", "Show the drive that holds a file");
  const auto options = optionsOf(*command, chosen, where);
  command->add_option("PATH", options->path, "The file; it need not exist yet")->required();
  command->add_flag("--json", options->json, "Print one JSON object");
}

}  // namespace kmv::tool
