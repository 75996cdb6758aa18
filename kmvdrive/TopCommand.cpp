// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/KMVDiskArbiter.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "kmvdrive/ActivityBoard.h"
#include "kmvdrive/ActivityFeed.h"
#include "kmvdrive/Command.h"
#include "kmvdrive/InitialReport.h"
#include "kmvdrive/Screen.h"
#include "kmvdrive/SecondsOption.h"

namespace kmv::tool {
namespace {

struct TopOptions {
  bool json = false;
  bool once = false;
  std::string seconds;  // empty for no limit
};

using Clock = EventLoop::Clock;

/// Silence for longer than a cycle takes means that nothing moved.
constexpr std::chrono::milliseconds kQuietCycle{1300};
/// What is written to something that is no terminal need not be narrow.
constexpr std::size_t kWide = 1000;

class Top {
 public:
  Top(CommandContext& context, const TopOptions& options)
      : context_(context), options_(options), feed_([this](const auto& activities) { update(activities); }) {
    if (!options.json && !options.once && isatty(STDOUT_FILENO) == 1) screen_.emplace();
  }

  ExitCode run() {
    const auto end = deadlineAfterSeconds(options_.seconds);
    nextQuiet_ = Clock::now() + kQuietCycle;
    while (goesOn_) {
      const auto deadline = end ? std::min(*end, nextQuiet_) : nextQuiet_;
      const Wake wake = context_.loop.wait(deadline);
      if (wake == Wake::stopRequested || wake == Wake::outputClosed) break;
      if (end && Clock::now() >= *end) break;
      if (Clock::now() >= nextQuiet_) {
        update({});
      } else if (screen_ && !(Screen::size() == drawnFor_)) {
        draw();
      }
    }
    return ExitCode::ok;
  }

 private:
  void update(const ActivityBoard::Activities& activities) {
    nextQuiet_ = Clock::now() + kQuietCycle;
    board_.update(KMVDiskArbiter::sharedInstance().mountedDictionaries(), activities, measureOfDrive);
    draw();
    if (options_.once) goesOn_ = false;
  }

  void draw() {
    const bool blocks = showsUTF8();
    std::string text;
    if (options_.json) {
      const std::chrono::duration<double> now = std::chrono::system_clock::now().time_since_epoch();
      text = jsonLine(board_.asJSON(now.count()));
    } else if (screen_) {
      const Screen::Size size = drawnFor_ = Screen::size();
      std::vector<std::string> lines = board_.asText(context_.style, size.columns, blocks);
      if (lines.size() > size.lines) {
        lines.resize(size.lines);
        lines.back() = "...";
      }
      text = Screen::frame(lines);
    } else {
      for (const std::string& line : board_.asText(context_.style, kWide, blocks)) text += line + "\n";
      text += options_.once ? "" : "\n";
    }
    goesOn_ = goesOn_ && context_.output.write(text);
  }

  CommandContext& context_;
  const TopOptions& options_;
  ActivityBoard board_;
  std::optional<Screen> screen_;
  Screen::Size drawnFor_;
  bool goesOn_ = true;
  Clock::time_point nextQuiet_;
  ActivityFeed feed_;  // the last member: what it tells comes to the others
};

ExitCode top(CommandContext& context, const TopOptions& options) {
  InitialReport report;
  if (report.run(context.loop)) return ExitCode::ok;
  report.warnWhenIncomplete();
  return Top(context, options).run();
}

}  // namespace

void addTopCommand(CLI::App& app, Action& chosen) {
  CLI::App* command = app.add_subcommand("top", "Show how busy each drive is, until stopped");
  const auto options = std::make_shared<TopOptions>();
  command->add_flag("--json", options->json, "Print one JSON object a line");
  command->add_flag("--once", options->once, "Show the figures of one second and end");
  addSecondsOption(*command, options->seconds);
  command->callback(
      [options, &chosen] { chosen = [options](CommandContext& context) { return top(context, *options); }; });
}

}  // namespace kmv::tool
