// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/HiddenMounts.h>
#include <KMVDriveLibrary/KMVDiskArbiter.h>
#include <KMVDriveLibrary/KMVDriveKeys.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "kmvdrive/CodexFeed.h"
#include "kmvdrive/Command.h"
#include "kmvdrive/DriveJSON.h"
#include "kmvdrive/DriveSummary.h"
#include "kmvdrive/InitialReport.h"
#include "kmvdrive/Table.h"

namespace kmv::tool {
namespace {

struct ListOptions {
  bool json = false;
  bool all = false;
  bool verbose = false;
};

/// What the registry knows at one moment.
struct Listing {
  MountedDictionaries drives;
  KMVDiskArbiter::UnmountedDictionaries unmounted;
  std::vector<HiddenMount> hidden;
  std::optional<std::map<std::string, CodexStatus>> codex;  // by path; none when nobody asked for it

  const CodexStatus* codexVolume(const Dictionary& drive) const {
    const URL* url = drive.url(kDiskURLKey);
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

std::string listingAsJSON(const Listing& listing, bool withHidden) {
  JSON document = {{"schema", 1}, {"drives", JSON::array()}, {"unmounted", JSON::array()}};
  for (const auto& [url, drive] : listing.drives) {
    JSON described = jsonOfDrive(*drive);
    if (const CodexStatus* codex = listing.codexVolume(*drive))
      described["codex"] = jsonOfCodexVolume(*codex);
    document["drives"].push_back(std::move(described));
  }
  for (const auto& description : listing.unmounted)
    document["unmounted"].push_back(jsonOfDrive(*description));
  if (withHidden) {
    document["hidden"] = JSON::array();
    for (const HiddenMount& mount : listing.hidden) document["hidden"].push_back(jsonOfHiddenMount(mount));
  }
  return jsonLine(document);
}

std::string drivesAsTable(const Listing& listing, const Style& style) {
  if (listing.drives.empty()) return "No drives are mounted.\n";
  std::vector<Table::Column> columns{{"NAME"},        {"KIND"}, {"SIZE", Table::Align::right},
                                     {"MOUNT POINT"}, {"UUID"}, {"FLAGS"}};
  if (listing.codex) columns.push_back({"CODEX"});
  Table table(columns);
  for (const auto& [url, drive] : listing.drives) {
    const DriveSummary summary = summaryOf(*drive);
    std::vector<std::string> row{summary.name,       summary.kind, summary.size,
                                 summary.mountPoint, summary.uuid, summary.flags};
    const CodexStatus* codex = listing.codexVolume(*drive);
    if (listing.codex) row.push_back(codex == nullptr ? std::string() : codexText(*codex));
    table.addRow(row);
  }
  return table.text(style);
}

std::string unmountedAsTable(const Listing& listing, const Style& style) {
  if (listing.unmounted.empty()) return {};
  Table table({{"NOT MOUNTED"}, {"KIND"}, {"SIZE", Table::Align::right}, {"DEVICE"}, {"UUID"}, {"FLAGS"}});
  for (const auto& description : listing.unmounted) {
    const DriveSummary summary = summaryOf(*description);
    table.addRow({summary.name, summary.kind, summary.size, summary.device, summary.uuid, summary.flags});
  }
  return "\n" + table.text(style);
}

std::string hiddenAsTable(const Listing& listing, const Style& style) {
  if (listing.hidden.empty()) return {};
  Table table({{"HIDDEN MOUNT"}, {"KIND"}, {"RULE"}});
  for (const HiddenMount& mount : listing.hidden) table.addRow({mount.path, mount.kind, mount.rule});
  return "\n" + table.text(style);
}

ExitCode list(CommandContext& context, const ListOptions& options) {
  InitialReport report;
  if (report.run(context.loop)) return ExitCode::ok;
  report.warnWhenIncomplete();

  const KMVDiskArbiter& arbiter = KMVDiskArbiter::sharedInstance();
  Listing listing{arbiter.mountedDictionaries(), arbiter.unmountedDictionaries(), {}, {}};
  if (options.verbose) {
    listing.codex = askCodexVolumes(context.loop, listing.drives);
    if (!listing.codex) return ExitCode::ok;
  }
  if (options.all) listing.hidden = hiddenMounts();
  if (options.json) {
    context.output.write(listingAsJSON(listing, options.all));
  } else {
    context.output.write(drivesAsTable(listing, context.style) + unmountedAsTable(listing, context.style) +
                         hiddenAsTable(listing, context.style));
  }
  return ExitCode::ok;
}

}  // namespace

void addListCommand(CLI::App& app, Action& chosen) {
  CLI::App* command = app.add_subcommand("list", "Show the drives that are attached now");
  const auto options = std::make_shared<ListOptions>();
  command->add_flag("--json", options->json, "Print one JSON object");
  command->add_flag("--all", options->all, "Show also the mounts that are no drives, and why they are not");
  command->add_flag("-v,--verbose", options->verbose, "Ask Codex volumes for their state and size");
  command->callback([options, &chosen] {
    chosen = [options](CommandContext& context) { return list(context, *options); };
  });
}

}  // namespace kmv::tool
