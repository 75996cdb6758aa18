// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/KMVDiskArbiter.h>

#include <CLI/CLI.hpp>
#include <memory>

#include "kmvdrive/Command.h"
#include "kmvdrive/InitialReport.h"
#include "kmvdrive/StorageTree.h"

namespace kmv::tool {
namespace {

ExitCode tree(CommandContext& context, bool json) {
  InitialReport report;
  if (report.run(context.loop)) return ExitCode::ok;
  report.warnWhenIncomplete();
  const auto disks = readStorageDisks(KMVDiskArbiter::sharedInstance());
  context.output.write(json ? jsonLine(jsonOfStorage(disks)) : textOfStorage(disks, context.style));
  return ExitCode::ok;
}

}  // namespace

void addTreeCommand(CLI::App& app, Action& chosen) {
  CLI::App* command =
      app.add_subcommand("tree", "Show disks, their partitions and what is mounted from them");
  const auto json = std::make_shared<bool>(false);
  command->add_flag("--json", *json, "Print one JSON object");
  command->callback(
      [json, &chosen] { chosen = [json](CommandContext& context) { return tree(context, *json); }; });
}

}  // namespace kmv::tool
