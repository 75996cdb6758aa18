// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/Exception.h>
#include <KMVDriveLibrary/KMVDiskArbiter.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <memory>
#include <string>

#include "kmvdrive/Command.h"
#include "kmvdrive/DisplayText.h"
#include "kmvdrive/DriveJSON.h"
#include "kmvdrive/DriveSummary.h"
#include "kmvdrive/Location.h"
#include "kmvdrive/Table.h"

namespace kmv::tool {
namespace {

struct WhereOptions {
  std::string path;
  bool json = false;
};

DictionarySnapshot driveThatHolds(const std::string& path) {
  KMVDiskArbiter& arbiter = KMVDiskArbiter::sharedInstance();
  arbiter
      .startArbiter();  // what it has not heard of by the time of the question is registered by the question
  try {
    const auto location = locationOf(path);
    const auto drive = location ? arbiter.findRootMountDictionaryForURL(location) : nullptr;
    return drive == nullptr ? nullptr : drive->snapshot();
  } catch (const Exception&) {
    return nullptr;
  }
}

std::string driveAsTable(const Dictionary& drive, const Style& style) {
  Table table({{"NAME"}, {"KIND"}, {"SIZE", Table::Align::right}, {"MOUNT POINT"}, {"UUID"}, {"FLAGS"}});
  const DriveSummary summary = summaryOf(drive);
  table.addRow({summary.name, summary.kind, summary.size, summary.mountPoint, summary.uuid, summary.flags});
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

void addWhereCommand(CLI::App& app, Action& chosen) {
  CLI::App* command = app.add_subcommand("where", "Show the drive that holds a file");
  const auto options = std::make_shared<WhereOptions>();
  command->add_option("PATH", options->path, "The file; it need not exist yet")->required();
  command->add_flag("--json", options->json, "Print one JSON object");
  command->callback([options, &chosen] {
    chosen = [options](CommandContext& context) { return where(context, *options); };
  });
}

}  // namespace kmv::tool
