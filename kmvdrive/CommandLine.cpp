// SPDX-License-Identifier: MIT
#include "kmvdrive/CommandLine.h"

#include <KMVDriveLibrary/KMVDriveLibraryVersion.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <utility>

#include "kmvdrive/InitialReport.h"

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

constexpr char kExitCodes[] =
    "Exit codes: 0 done; 1 an error; 2 wrong usage; 3 no such drive or attribute; 4 refused; 5 incomplete, "
    "since\n"
    "parts of the machine could not be read. What is asked to end by SIGINT or SIGTERM and cannot within a "
    "second\n"
    "ends by that signal.";

/// What is not all there is may not look like it; nor is what was not found known to be absent.
ExitCode judged(ExitCode code) {
  const bool claimsAll = code == ExitCode::ok || code == ExitCode::notFound;
  return warnOfDegradations() && claimsAll ? ExitCode::incomplete : code;
}

ExitCode runAction(const Action& action) {
  std::signal(SIGPIPE, SIG_IGN);  // a closed pipe is noticed by the write (EPIPE)
  StopSignals stopSignals;
  Output output(STDOUT_FILENO, stopSignals.fileDescriptor());
  EventLoop loop(STDOUT_FILENO, stopSignals.fileDescriptor());
  CommandContext context{output, loop, Style::forTerminal(STDOUT_FILENO)};
  const ExitCode code = judged(action(context));
  if (!output.failed()) return code;
  std::fprintf(stderr, "kmvdrive: cannot write: %s\n", output.failure().c_str());
  return ExitCode::error;
}

}  // namespace

ExitCode runCommandLine(int argc, const char* const* argv) {
  CLI::App app("Shows which drives are attached to this machine and what each of them is.", "kmvdrive");
  app.set_version_flag("--version", versionText());
  app.require_subcommand(1);
  app.footer(kExitCodes);
  Action chosen;
  for (const auto add : {addAttrCommand, addListCommand, addWatchCommand, addTopCommand, addTreeCommand,
                         addWhereCommand, addUnmountCommand, addRenameCommand})
    add(app, chosen);
  try {
    app.parse(argc, argv);
    return runAction(chosen);
  } catch (const CLI::Success& helpOrVersion) {
    return static_cast<ExitCode>(app.exit(helpOrVersion));
  } catch (const CLI::ParseError& error) {
    return usageError(app, error);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "kmvdrive: %s\n", error.what());
    return ExitCode::error;
  }
}

void chooseWith(CLI::App& command, Action& chosen, Action action) {
  command.callback([&chosen, action = std::move(action)] { chosen = action; });
}

std::optional<double> parseSeconds(std::string_view text) {
  if (text.empty() || text.find_first_not_of("0123456789.eE+-") != std::string_view::npos)
    return std::nullopt;
  const std::string terminated(text);
  char* end = nullptr;
  const double seconds = std::strtod(terminated.c_str(), &end);
  const bool isNumber = end == terminated.c_str() + terminated.size();
  if (!isNumber || !std::isfinite(seconds) || std::signbit(seconds)) return std::nullopt;
  return seconds;
}

void addSecondsOption(CLI::App& command, std::string& seconds) {
  command
      .add_option("--for", seconds,
                  "End this many seconds (fractions allowed) after the drives that are there were shown")
      ->type_name("SECONDS")
      ->check([](const std::string& text) {
        return parseSeconds(text) ? std::string() : "\"" + text + "\" is no number of seconds";
      });
}

std::optional<EventLoop::Clock::time_point> deadlineAfterSeconds(const std::string& seconds) {
  if (seconds.empty()) return std::nullopt;
  constexpr double kLongest = 1e9;  // some thirty years: no overflow of the clock
  const std::chrono::duration<double> length(std::min(parseSeconds(seconds).value_or(0), kLongest));
  return EventLoop::Clock::now() + std::chrono::ceil<EventLoop::Clock::duration>(length);
}

std::optional<URL> locationOf(const std::string& path) {
  if (path.empty()) return std::nullopt;
  if (path.front() == '/') return URL::fileURLWithPath(path, /*isDirectory=*/false);
  const std::unique_ptr<char, void (*)(void*)> folder(::getcwd(nullptr, 0), std::free);
  if (folder == nullptr || *folder.get() != '/') return std::nullopt;  // the working directory is gone
  return URL::fileURLWithPath(std::string(folder.get()) + "/" + path, /*isDirectory=*/false);
}

}  // namespace kmv::tool
