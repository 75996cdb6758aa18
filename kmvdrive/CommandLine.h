// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/URL.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "kmvdrive/DisplayText.h"
#include "kmvdrive/EventLoop.h"
#include "kmvdrive/Output.h"

namespace CLI {
class App;
}

namespace kmv::tool {

/// What the program tells the shell. Scripts rely on the numbers, which the help lists.
enum class ExitCode : int {
  ok = 0,
  error = 1,       ///< something failed; a line on stderr says what
  usage = 2,       ///< the command line makes no sense
  notFound = 3,    ///< no such drive or attribute
  refused = 4,     ///< the platform or another program said no
  incomplete = 5,  ///< parts of the machine could not be read; lines on stderr say which
};

/// Parses the arguments, runs the command they name and returns the exit code. Errors go to stderr.
ExitCode runCommandLine(int argc, const char* const* argv);

/// What a command has to work with.
struct CommandContext {
  Output& output;
  EventLoop& loop;
  Style style;
};

using Action = std::function<ExitCode(CommandContext&)>;

// One function a command: it adds its subcommand to `app` and sets `chosen` when the user asks for it.
void addAttrCommand(CLI::App& app, Action& chosen);
void addListCommand(CLI::App& app, Action& chosen);
void addWatchCommand(CLI::App& app, Action& chosen);
void addTopCommand(CLI::App& app, Action& chosen);
void addTreeCommand(CLI::App& app, Action& chosen);
void addWhereCommand(CLI::App& app, Action& chosen);
void addUnmountCommand(CLI::App& app, Action& chosen);
void addRenameCommand(CLI::App& app, Action& chosen);

/// Makes `action` the chosen one when the user asks for `command`.
void chooseWith(CLI::App& command, Action& chosen, Action action);

/// The options of `command`, which the arguments fill before `run` is called with them.
template <typename Options>
std::shared_ptr<Options> optionsOf(CLI::App& command, Action& chosen,
                                   ExitCode (*run)(CommandContext&, const Options&)) {
  auto options = std::make_shared<Options>();
  chooseWith(command, chosen, [options, run](CommandContext& context) { return run(context, *options); });
  return options;
}

/// A number of seconds, fractions allowed; none for what is negative, infinite, NaN or not decimal.
std::optional<double> parseSeconds(std::string_view text);

/// Adds `--for SECONDS` to a command. The validated text goes to `seconds`, which stays empty without it.
void addSecondsOption(CLI::App& command, std::string& seconds);

/// When that many seconds from now are over; none for an empty text.
std::optional<EventLoop::Clock::time_point> deadlineAfterSeconds(const std::string& seconds);

/// The place that a path on the command line names, resolved against the working directory: the library takes
/// absolute paths only. None for an empty path, and for a relative one when the working directory is gone.
std::optional<URL> locationOf(const std::string& path);

}  // namespace kmv::tool
