// SPDX-License-Identifier: MIT
#include "kmvdrive/CommandLine.h"

#include <KMVDriveLibrary/KMVDriveLibraryVersion.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <exception>
#include <string>

#include "kmvdrive/Command.h"
#include "kmvdrive/DisplayText.h"
#include "kmvdrive/StopSignals.h"

namespace kmv::tool {
namespace {

std::string versionText() {
  char library[32];
  std::snprintf(library, sizeof library, "%.1f", KMVDriveLibraryVersionNumber);
  return std::string("kmvdrive " KMVDRIVE_VERSION " (KMVDriveLibrary ") + library + ")";
}

ExitCode usageError(const CLI::App& app, const CLI::ParseError& error) {
  const auto unknown = app.remaining();
  const bool isCommand =
      app.get_subcommands().empty() && !unknown.empty() && unknown.front().rfind('-', 0) != 0;
  const std::string message = isCommand ? "no such command: " + unknown.front() : error.what();
  std::fprintf(stderr, "kmvdrive: %s\nRun with --help for more information.\n", visibleText(message).c_str());
  return ExitCode::usage;
}

ExitCode runAction(const Action& action) {
  std::signal(SIGPIPE, SIG_IGN);  // a closed pipe is noticed where it is written to
  StopSignals stopSignals;
  Output output(STDOUT_FILENO, stopSignals.fileDescriptor());
  EventLoop loop(STDOUT_FILENO, stopSignals.fileDescriptor());
  CommandContext context{output, loop, Style::forTerminal(STDOUT_FILENO)};
  const ExitCode code = action(context);
  if (!output.failed()) return code;
  std::fprintf(stderr, "kmvdrive: cannot write: %s\n", output.failure().c_str());
  return ExitCode::error;
}

}  // namespace

ExitCode runCommandLine(int argc, const char* const* argv) {
  CLI::App app("Shows which drives are attached to this machine and what each of them is.", "kmvdrive");
  app.set_version_flag("--version", versionText());
  app.require_subcommand(1);
  Action chosen;
  addAttrCommand(app, chosen);
  addListCommand(app, chosen);
  addWatchCommand(app, chosen);
  addTopCommand(app, chosen);
  addTreeCommand(app, chosen);
  addWhereCommand(app, chosen);
  addUnmountCommand(app, chosen);
  addRenameCommand(app, chosen);
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& helpOrVersion) {
    return static_cast<ExitCode>(app.exit(helpOrVersion));
  } catch (const CLI::ParseError& error) {
    return usageError(app, error);
  }
  try {
    return runAction(chosen);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "kmvdrive: %s\n", error.what());
    return ExitCode::error;
  }
}

}  // namespace kmv::tool
