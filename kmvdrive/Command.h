// SPDX-License-Identifier: MIT
#pragma once

#include <functional>

#include "kmvdrive/EventLoop.h"
#include "kmvdrive/ExitCode.h"
#include "kmvdrive/Output.h"
#include "kmvdrive/Style.h"

namespace CLI {
class App;
}

namespace kmv::tool {

/// What a command has to work with.
struct CommandContext {
  Output& output;
  EventLoop& loop;
  Style style;
};

using Action = std::function<ExitCode(CommandContext&)>;

// One function a command: it adds its subcommand to `app`, which sets `chosen` when the user
// asks for it.
void addAttrCommand(CLI::App& app, Action& chosen);
void addListCommand(CLI::App& app, Action& chosen);
void addWatchCommand(CLI::App& app, Action& chosen);
void addTopCommand(CLI::App& app, Action& chosen);
void addTreeCommand(CLI::App& app, Action& chosen);
void addWhereCommand(CLI::App& app, Action& chosen);
void addUnmountCommand(CLI::App& app, Action& chosen);
void addRenameCommand(CLI::App& app, Action& chosen);

}  // namespace kmv::tool
