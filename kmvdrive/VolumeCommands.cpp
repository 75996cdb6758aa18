// SPDX-License-Identifier: MIT
// What is asked of one mounted volume: to go, or to have another name.
#include <KMVDriveLibrary/DescriptionKeys.h>
#include <KMVDriveLibrary/Exception.h>
#include <KMVDriveLibrary/KMVDiskArbiter.h>
#include <KMVDriveLibrary/KMVDriveKeys.h>
#include <KMVDriveLibrary/NotificationCenter.h>
#include <KMVDriveLibrary/Queue.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "kmvdrive/CommandLine.h"
#include "kmvdrive/EventText.h"

namespace kmv::tool {
namespace {

/// A slow medium takes long to flush; but a volume that is mounted again at once is never announced as gone,
/// so the wait needs an upper bound.
constexpr std::chrono::minutes kPatience{5};

struct VolumeOptions {
  std::string path;
  std::string name;
};

/// How a command ended; none while it is in flight. Shared, since a handler may outlive the command.
struct Outcome {
  bool succeeded = false;
  std::string refusal;
};
using SharedOutcome = std::shared_ptr<std::optional<Outcome>>;

/// The mount URL of the drive that is mounted at `path`; none, and said so, when there is none.
std::optional<URL> volumeMountedAt(const std::string& path) {
  KMVDiskArbiter& arbiter = KMVDiskArbiter::sharedInstance();
  arbiter.startArbiter();
  const std::string shown = visibleText(path);
  std::optional<URL> root;
  const auto location = locationOf(path);
  try {
    if (location) root = arbiter.findRootDriveURLForPathURL(location);
  } catch (const Exception&) {  // no volume holds it: said below
  }
  if (!root) {
    std::fprintf(stderr, "kmvdrive: \"%s\" is on no drive\n", shown.c_str());
  } else if (URLByStandardizingPath(*location).path() != root->path()) {
    std::fprintf(stderr, "kmvdrive: no drive is mounted at \"%s\"; it is on the one at \"%s\"\n",
                 shown.c_str(), visibleText(root->path()).c_str());
    root.reset();
  }
  return root;
}

/// The answer to the only command that this process gives, brought to the main thread.
class Answer {
 public:
  /// `read` makes the outcome of a notification; none when it is no answer.
  using Read = std::function<std::optional<Outcome>(const Notification&)>;

  void expect(std::string_view notification, Read read) {
    const auto observer = [outcome = outcome_, read = std::move(read)](const Notification& news) {
      if (auto result = read(news)) {
        mainQueue().async([outcome, result = std::move(*result)] {
          if (!*outcome) *outcome = result;
        });
      }
    };
    registrations_.push_back(NotificationCenter::defaultCenter().addObserver(notification, observer));
  }

  /// None when the user stopped waiting, or nothing came for long.
  const std::optional<Outcome>& wait(EventLoop& loop) {
    const auto limit = EventLoop::Clock::now() + kPatience;
    while (!*outcome_ && loop.wait(limit) == Wake::worked) {
    }
    return *outcome_;
  }

 private:
  SharedOutcome outcome_ = std::make_shared<std::optional<Outcome>>();
  std::vector<NotificationCenter::Registration> registrations_;
};

/// The drive's disappearance is this outcome.
void expectRemoval(Answer& answer, const URL& root, const Outcome& outcome) {
  answer.expect(kDiskArbiterRemovedDiskDetectedNotification,
                [root, outcome](const Notification& news) -> std::optional<Outcome> {
                  const URL* path = news.object.dictionary()->url(key::kVolumePath);
                  return path != nullptr && *path == root ? std::optional(outcome) : std::nullopt;
                });
}

ExitCode conclude(CommandContext& context, Answer& answer, const std::string& what, const std::string& done) {
  const auto& outcome = answer.wait(context.loop);
  if (!outcome) {
    std::fprintf(stderr, "kmvdrive: stopped waiting; the system may still %s\n", what.c_str());
    return ExitCode::error;
  }
  if (!outcome->succeeded) {
    std::fprintf(stderr, "kmvdrive: cannot %s: %s\n", what.c_str(), outcome->refusal.c_str());
    return ExitCode::refused;
  }
  context.output.write(done);
  return ExitCode::ok;
}

ExitCode unmount(CommandContext& context, const VolumeOptions& options) {
  const auto root = volumeMountedAt(options.path);
  if (!root) return ExitCode::notFound;
  Answer answer;
  answer.expect(kDiskEjectionRejected, [](const Notification& news) {
    return Outcome{false, refusalText(*news.object.dictionary())};
  });
  expectRemoval(answer, *root, {true, {}});
  const std::string shown = "\"" + visibleText(root->path()) + "\"";
  if (!KMVDiskArbiter::sharedInstance().unmountVolumeAtRootURL(*root)) {
    std::fprintf(stderr, "kmvdrive: no drive is mounted at %s any more\n", shown.c_str());
    return ExitCode::notFound;
  }
  return conclude(context, answer, "unmount " + shown, "unmounted " + shown + "\n");
}

ExitCode rename(CommandContext& context, const VolumeOptions& options) {
  const auto root = volumeMountedAt(options.path);
  if (!root) return ExitCode::notFound;
  Answer answer;
  answer.expect(kDiskArbiterRenameSucceeded, [](const Notification&) { return Outcome{true, {}}; });
  answer.expect(kDiskArbiterRenameFailed, [](const Notification&) {
    // The announcement does not say why.
    return Outcome{false,
                   "the system refused; it may be read-only, of a kind that cannot have this name, or "
                   "take more rights than you have"};
  });
  const std::string shown = "\"" + visibleText(root->path()) + "\"";
  expectRemoval(answer, *root, {false, "it is not mounted any more"});
  const std::string name = "\"" + visibleText(options.name) + "\"";
  KMVDiskArbiter::sharedInstance().renameDriveWithRootURL(*root, options.name);
  return conclude(context, answer, "rename " + shown + " to " + name,
                  "renamed " + shown + " to " + name + "\n");
}

}  // namespace

void addUnmountCommand(CLI::App& app, Action& chosen) {
  CLI::App* command = app.add_subcommand("unmount", "Unmount a drive");
  const auto options = optionsOf(*command, chosen, unmount);
  command->add_option("PATH", options->path, "Where it is mounted")->required();
}

void addRenameCommand(CLI::App& app, Action& chosen) {
  CLI::App* command = app.add_subcommand("rename", "Give a drive another name");
  const auto options = optionsOf(*command, chosen, rename);
  command->add_option("PATH", options->path, "Where it is mounted")->required();
  command->add_option("NAME", options->name, "Its new name")->required();
}

}  // namespace kmv::tool
