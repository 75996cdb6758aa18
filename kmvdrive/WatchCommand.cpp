// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/KMVDriveKeys.h>
#include <KMVDriveLibrary/NotificationCenter.h>
#include <KMVDriveLibrary/Queue.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "kmvdrive/ActivityFeed.h"
#include "kmvdrive/CodexFeed.h"
#include "kmvdrive/Command.h"
#include "kmvdrive/DriveLedger.h"
#include "kmvdrive/EventText.h"
#include "kmvdrive/InitialReport.h"
#include "kmvdrive/SecondsOption.h"

namespace kmv::tool {
namespace {

struct WatchOptions {
  bool json = false;
  std::string seconds;  // empty for no limit; checked when the arguments were read
};

/// Brings every announcement to the main thread in the order in which the registry made them: what it posts
/// on another thread goes behind what it handed to the main queue before.
void onMainQueue(std::function<void()> task) {
  if (mainQueue().isCurrent()) {
    task();
  } else {
    mainQueue().async(std::move(task));
  }
}

/// Feeds `ledger` from the registry's notifications while it lives; tasks under way then come to nothing.
class Subscription {
 public:
  explicit Subscription(std::weak_ptr<DriveLedger> ledger) : ledger_(std::move(ledger)) {
    observe(kDiskArbiterNewDiskDetectedNotification,
            [](DriveLedger& book, const Drive& drive, const DictionarySnapshot&) { book.announced(drive); });
    observe(kDiskArbiterChangedDiskDetectedNotification,
            [](DriveLedger& book, const Drive& drive, const DictionarySnapshot& contents) {
              book.changed(drive, contents);
            });
    observe(
        kDiskArbiterRemovedDiskDetectedNotification,
        [](DriveLedger& book, const Drive&, const DictionarySnapshot& contents) { book.removed(contents); });
    observe(kDiskEjectionRejected, [](DriveLedger& book, const Drive&, const DictionarySnapshot& contents) {
      Dictionary answer = *contents;
      if (const Value* volume = contents->find("volName")) answer.set(kDiskURLKey, *volume);
      book.answered(DriveEvent::ejectionRejected, answer);
    });
    observe(kDiskArbiterRenameSucceeded, renamed<DriveEvent::renameSucceeded>);
    observe(kDiskArbiterRenameFailed, renamed<DriveEvent::renameFailed>);
  }

 private:
  using Drive = DriveLedger::Drive;
  using Tell = void (*)(DriveLedger&, const Drive&, const DictionarySnapshot& contents);

  template <DriveEvent event>
  static void renamed(DriveLedger& book, const Drive&, const DictionarySnapshot& contents) {
    book.answered(event, *contents);
  }

  void observe(std::string_view name, Tell tell) {
    const auto observer = [ledger = ledger_, tell](const Notification& notification) {
      // A live drive may have changed again when the main thread gets to it: take what it holds now.
      const NotificationObject& object = notification.object;
      auto contents = notification.userInfo == nullptr ? object.dictionary() : notification.userInfo;
      onMainQueue([ledger, tell, drive = object.drive(), contents = std::move(contents)] {
        if (const auto book = ledger.lock()) tell(*book, drive, contents);
      });
    };
    registrations_.push_back(NotificationCenter::defaultCenter().addObserver(name, observer));
  }

  std::weak_ptr<DriveLedger> ledger_;
  std::vector<NotificationCenter::Registration> registrations_;
};

ExitCode watch(CommandContext& context, const WatchOptions& options) {
  bool writable = true;
  CodexFeed codex([&](const CodexStatus& status) {
    if (!writable) return;
    const EventTime now = std::chrono::system_clock::now();
    writable = context.output.write(options.json ? codexAsJSON(now, status)
                                                 : codexAsText(now, status, context.style));
  });
  const auto ledger = std::make_shared<DriveLedger>([&](DriveEvent event, const Dictionary& drive) {
    if (!writable) return;
    const EventTime now = std::chrono::system_clock::now();
    if (event == DriveEvent::present || event == DriveEvent::added) codex.ask(drive);
    writable = context.output.write(options.json ? eventAsJSON(event, now, drive)
                                                 : eventAsText(event, now, drive, context.style));
  });
  const Subscription subscription(ledger);
  InitialReport report;
  if (report.run(context.loop)) return ExitCode::ok;
  report.warnWhenIncomplete();
  ledger->settle();
  std::optional<ActivityFeed>
      feed;  // the monitor measures every second; who only looks is not made to wait for that
  if (options.json) {
    feed.emplace([&](const ActivityBoard::Activities& activities) {
      if (writable)
        writable = context.output.write(activityAsJSON(std::chrono::system_clock::now(), activities));
    });
  }
  const auto deadline = deadlineAfterSeconds(options.seconds);
  while (writable && context.loop.wait(deadline) == Wake::worked) {
  }
  return ExitCode::ok;
}

}  // namespace

void addWatchCommand(CLI::App& app, Action& chosen) {
  CLI::App* command =
      app.add_subcommand("watch", "Show the drives, and then what happens to them, until stopped");
  const auto options = std::make_shared<WatchOptions>();
  command->add_flag("--json", options->json, "Print one JSON object a line");
  addSecondsOption(*command, options->seconds);
  command->callback([options, &chosen] {
    chosen = [options](CommandContext& context) { return watch(context, *options); };
  });
}

}  // namespace kmv::tool
