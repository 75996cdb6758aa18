// SPDX-License-Identifier: MIT
#include "topology/CodexWrapperSupply.h"

#include <KMVDriveLibrary/DescriptionKeys.h>
#include <KMVDriveLibrary/Exception.h>
#include <KMVDriveLibrary/KMVDiskArbiter.h>
#include <KMVDriveLibrary/host/OrvaneLogging.h>

#include <optional>
#include <utility>

namespace kmv::topology {
namespace {

/// The root of the Codex volume that holds `location`; none when no drive does, or it is not a Codex volume.
std::optional<URL> codexRootOf(const URL& location, const Dictionary& drive) {
  try {
    auto root = KMVDiskArbiter::sharedInstance().findRootDriveURLForPathURL(location);
    if (root && CodexVirtualFileSystemWrapper::urlIsInVirtualFileSystem(location, drive)) return root;
  } catch (const Exception&) {  // nothing on the way up is on a drive
  }
  return std::nullopt;
}

/// The drive's mount point; where its dictionary does not tell, the location stands for it.
std::string volumeAskedFor(const URL& location, const Dictionary& drive) {
  const URL* const path = drive.url(key::kVolumePath);
  return path == nullptr ? location.absoluteString() : path->path();
}

}  // namespace

CodexWrapperSupply::CodexWrapperSupply(std::shared_ptr<SerialQueue> managerQueue)
    : queue_(std::move(managerQueue)),
      questions_(Platform::current().queues().makeConcurrentQueue("KMVDriveWrapperManagerQuestions")) {}

CodexWrapperSupply::Wrappers CodexWrapperSupply::wrappers() const {
  const MutexLock lock(mutex_);
  return wrappers_;
}

CodexWrapperSupply::Wrapper CodexWrapperSupply::known(const std::string& path) const {
  const MutexLock lock(mutex_);
  const auto found = wrappers_.find(path);
  return found == wrappers_.end() ? nullptr : found->second;
}

void CodexWrapperSupply::request(const URL& location, Dictionary drive, Answer answer) {
  const std::string volume = volumeAskedFor(location, drive);
  {
    const MutexLock lock(mutex_);
    const auto [line, isFirst] = lines_.try_emplace(volume);
    line->second.push_back({location, std::move(drive), std::move(answer)});
    if (!isFirst) return;
  }
  ask(volume);
}

void CodexWrapperSupply::ask(const std::string& volume) {
  questions_->async([self = shared_from_this(), volume] { self->askFirstInLine(volume); });
}

void CodexWrapperSupply::askFirstInLine(const std::string& volume) {
  std::vector<Request> asked = takeFirstInLine(volume);
  const auto root = codexRootOf(asked.front().location, asked.front().drive);
  queue_->async([self = shared_from_this(), root, asked = std::move(asked)] {
    for (const Request& request : asked) {
      if (root) {
        self->supply(*root, request.answer);
      } else {
        request.answer(nullptr);
      }
    }
  });
  {
    const MutexLock lock(mutex_);
    const auto line = lines_.find(volume);
    if (line->second.empty()) {
      lines_.erase(line);
      return;
    }
  }
  ask(volume);
}

/// The first request and those behind it that are equal, in their order.
std::vector<CodexWrapperSupply::Request> CodexWrapperSupply::takeFirstInLine(const std::string& volume) {
  const MutexLock lock(mutex_);
  auto& line = lines_.find(volume)->second;
  std::vector<Request> taken;
  do {
    taken.push_back(std::move(line.front()));
    line.pop_front();
  } while (!line.empty() && line.front().location == taken.front().location &&
           line.front().drive == taken.front().drive);
  return taken;
}

/// Runs on the queue. Deduplicates: requests that come while the wrapper is being made wait for that one.
void CodexWrapperSupply::supply(const URL& root, Answer answer) {
  const std::string path = root.path();
  if (const Wrapper wrapper = known(path)) {
    answer(wrapper);
    return;
  }
  auto& waiting = inTheMaking_[path];
  waiting.push_back(std::move(answer));
  if (waiting.size() > 1) return;
  questions_->async([self = shared_from_this(), root] {
    self->queue_->async(
        [self, root, made = CodexVirtualFileSystemWrapper::initWithRoot(root)] { self->keep(root, made); });
  });
}

/// Runs on the queue.
void CodexWrapperSupply::keep(const URL& root, const Wrapper& wrapper) {
  OrvaneLog::defaultLog().logDebug("KMV-Codex new wrapper created.");
  {
    const MutexLock lock(mutex_);
    wrappers_.emplace(root.path(), wrapper);
  }
  const auto waiting = inTheMaking_.extract(root.path());
  for (const Answer& answer : waiting.mapped()) answer(wrapper);
}

}  // namespace kmv::topology
