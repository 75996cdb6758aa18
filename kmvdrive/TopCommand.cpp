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

#include "kmvdrive/Activity.h"
#include "kmvdrive/CommandLine.h"
#include "kmvdrive/InitialReport.h"
#include "kmvdrive/Screen.h"

namespace kmv::tool {
namespace {

struct TopOptions {
  bool json = false;
  bool once = false;
  std::string seconds;  // empty for no limit
};

using Clock = EventLoop::Clock;

/// No announcement for longer than a cycle means that nothing moved.
constexpr std::chrono::milliseconds kQuietCycle{1300};
/// The width where no terminal limits it.
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
    board_.update(KMVDiskArbiter::sharedInstance().mountedDictionaries(), activities, measureOfDrive,
                  meter_.read());
    draw();
    if (options_.once) goesOn_ = false;
  }

  void draw() { goesOn_ = goesOn_ && context_.output.write(text()); }

  std::string text() {
    if (options_.json) {
      const std::chrono::duration<double> now = std::chrono::system_clock::now().time_since_epoch();
      JSON document = board_.asJSON(now.count());
      addDegradations(document);
      return jsonLine(document);
    }
    if (screen_) return frame();
    std::string text;
    for (const std::string& line : board_.asText(context_.style, kWide, showsUTF8())) text += line + "\n";
    return options_.once ? text : text + "\n";
  }

  std::string frame() {
    const Screen::Size size = drawnFor_ = Screen::size();
    std::vector<std::string> lines = board_.asText(context_.style, size.columns, showsUTF8());
    if (lines.size() > size.lines) {
      lines.resize(size.lines);
      lines.back() = "...";
    }
    return Screen::frame(lines);
  }

  CommandContext& context_;
  const TopOptions& options_;
  ActivityBoard board_;
  LoadMeter meter_;
  std::optional<Screen> screen_;
  Screen::Size drawnFor_;
  bool goesOn_ = true;
  Clock::time_point nextQuiet_;
  ActivityFeed feed_;  // the last member: what it tells comes to the others
};

ExitCode top(CommandContext& context, const TopOptions& options) {
  if (!awaitInitialReport(context.loop)) return ExitCode::ok;
  return Top(context, options).run();
}

}  // namespace

void addTopCommand(CLI::App& app, Action& chosen) {
  CLI::App* command = app.add_subcommand("top", "Show how busy each drive is, until stopped");
  const auto options = optionsOf(*command, chosen, top);
  command->add_flag("--json", options->json, "Print one JSON object a line");
  command->add_flag("--once", options->once, "Show the figures of one second and end");
  addSecondsOption(*command, options->seconds);
}

}  // namespace kmv::tool
