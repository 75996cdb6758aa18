// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/DescriptionKeys.h>
#include <KMVDriveLibrary/HiddenMounts.h>
#include <KMVDriveLibrary/KMVDriveKeys.h>
#include <KMVDriveLibrary/NotificationCenter.h>
#include <KMVDriveLibrary/Queue.h>
#include <KMVDriveLibrary/UnmountedDiskList.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "kmvdrive/CodexFeed.h"
#include "kmvdrive/CommandLine.h"
#include "kmvdrive/DriveLedger.h"
#include "kmvdrive/EventText.h"
#include "kmvdrive/InitialReport.h"

namespace kmv::tool {
namespace {

struct WatchOptions {
  bool json = false;
  std::string seconds;  // empty for no limit; checked when the arguments were read
};

/// Runs every announcement on the main thread in the order in which the registry posted them: one from
/// another thread is queued behind what the registry put on the main queue before.
void onMainQueue(std::function<void()> task) {
  if (mainQueue().isCurrent()) {
    task();
  } else {
    mainQueue().async(std::move(task));
  }
}

/// Feeds `ledger` from the registry's notifications while it lives; tasks in flight at the end do nothing.
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
      if (const Value* volume = contents->find("volName")) answer.set(key::kVolumePath, *volume);
      book.answered(DriveEvent::ejectionRejected, answer);
    });
    observe(kUnmountedDiskAddedNotification, unmounted<DriveEvent::diskAdded>);
    observe(kUnmountedDiskRemovedNotification, unmounted<DriveEvent::diskRemoved>);
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

  /// Whole disks and unknown partitions, which some platforms report as not mountable, are no volumes.
  template <DriveEvent event>
  static void unmounted(DriveLedger& book, const Drive&, const DictionarySnapshot& contents) {
    if (contents->boolValue(key::kVolumeMountable) != false) book.answered(event, *contents);
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

/// The lines of a watch, until nobody reads them any more.
class Report {
 public:
  Report(CommandContext& context, bool json) : context_(context), json_(json) {}

  bool isRead() const { return isRead_; }

  void tell(DriveEvent event, const Dictionary& drive) {
    if (isRead_ && (event == DriveEvent::present || event == DriveEvent::added)) codex_.ask(drive);
    write(json_ ? eventAsJSON(event, now(), drive) : eventAsText(event, now(), drive, context_.style));
  }
  void tell(const ActivityBoard::Activities& activities) { write(activityAsJSON(now(), activities)); }
  void tell(const CodexStatus& status) {
    write(json_ ? codexAsJSON(now(), status) : codexAsText(now(), status, context_.style));
  }
  /// The registry hears only of what is still there, so what it missed is told beside its announcements.
  void tellMissed() {
    const std::uint64_t missed = mountEvents().missed, more = missed - std::exchange(missed_, missed);
    if (more != 0) write(json_ ? missedAsJSON(now(), more) : missedAsText(now(), more, context_.style));
  }

 private:
  static EventTime now() { return std::chrono::system_clock::now(); }
  void write(const std::string& line) { isRead_ = isRead_ && context_.output.write(line); }

  CommandContext& context_;
  const bool json_;
  bool isRead_ = true;
  std::uint64_t missed_ = 0;
  CodexFeed codex_{[this](const CodexStatus& status) { tell(status); }};
};

ExitCode watch(CommandContext& context, const WatchOptions& options) {
  Report report(context, options.json);
  const auto ledger = std::make_shared<DriveLedger>(
      [&report](DriveEvent event, const Dictionary& drive) { report.tell(event, drive); });
  const Subscription subscription(ledger);
  if (!awaitInitialReport(context.loop)) return ExitCode::ok;
  ledger->settle();
  std::optional<ActivityFeed>
      feed;  // the monitor wakes up every second, so only who asks for JSON pays for it
  if (options.json) feed.emplace([&report](const auto& activities) { report.tell(activities); });
  const auto deadline = deadlineAfterSeconds(options.seconds);
  while (report.isRead() && context.loop.wait(deadline) == Wake::worked) report.tellMissed();
  return ExitCode::ok;
}

}  // namespace

void addWatchCommand(CLI::App& app, Action& chosen) {
  CLI::App* command =
      app.add_subcommand("watch", "Show the drives, and then what happens to them, until stopped");
  const auto options = optionsOf(*command, chosen, watch);
  command->add_flag("--json", options->json, "Print one JSON object a line");
  addSecondsOption(*command, options->seconds);
}

}  // namespace kmv::tool
