// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/HiddenMounts.h>
#include <KMVDriveLibrary/KMVDiskArbiter.h>

#include <CLI/CLI.hpp>
#include <memory>
#include <string>
#include <vector>

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
};

/// What the registry knows at one moment.
struct Listing {
  MountedDictionaries drives;
  KMVDiskArbiter::UnmountedDictionaries unmounted;
  std::vector<HiddenMount> hidden;
};

std::string listingAsJSON(const Listing& listing, bool withHidden) {
  JSON document = {{"schema", 1}, {"drives", JSON::array()}, {"unmounted", JSON::array()}};
  for (const auto& [url, drive] : listing.drives) document["drives"].push_back(jsonOfDrive(*drive));
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
  Table table({{"NAME"}, {"KIND"}, {"SIZE", Table::Align::right}, {"MOUNT POINT"}, {"UUID"}, {"FLAGS"}});
  for (const auto& [url, drive] : listing.drives) {
    const DriveSummary summary = summaryOf(*drive);
    table.addRow({summary.name, summary.kind, summary.size, summary.mountPoint, summary.uuid, summary.flags});
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
  Listing listing{arbiter.mountedDictionaries(), arbiter.unmountedDictionaries(), {}};
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
  command->callback([options, &chosen] {
    chosen = [options](CommandContext& context) { return list(context, *options); };
  });
}

}  // namespace kmv::tool
