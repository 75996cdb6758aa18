// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/Exception.h>
#include <KMVDriveLibrary/KMVDiskArbiter.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "kmvdrive/Command.h"
#include "kmvdrive/DisplayText.h"
#include "kmvdrive/DriveJSON.h"
#include "kmvdrive/DriveSummary.h"
#include "kmvdrive/Table.h"

namespace kmv::tool {
namespace {

struct WhereOptions {
  std::string path;
  bool json = false;
};

/// Paths are the caller's; the library's are absolute. None for an empty path, which names nothing.
std::optional<URL> locationOf(const std::string& path) {
  if (path.empty()) return std::nullopt;
  if (path.front() == '/') return URL::fileURLWithPath(path, /*isDirectory=*/false);
  const std::unique_ptr<char, void (*)(void*)> folder(::getcwd(nullptr, 0), std::free);
  if (folder == nullptr || *folder.get() != '/') return std::nullopt;  // the working directory is gone
  return URL::fileURLWithPath(std::string(folder.get()) + "/" + path, /*isDirectory=*/false);
}

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
