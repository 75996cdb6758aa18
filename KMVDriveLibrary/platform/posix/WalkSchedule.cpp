// SPDX-License-Identifier: MIT
#include "platform/posix/WalkSchedule.h"

#include <KMVDriveLibrary/host/OrvaneLogging.h>

#include <algorithm>
#include <iterator>

#include "platform/posix/FolderReader.h"

namespace kmv {
namespace {

constexpr std::size_t kFilesAtATime = 32;     // of one folder, looked at by one thread
constexpr std::size_t kMostHelpers = 7;       // beside the caller
constexpr std::size_t kMostAhead = 16384;     // entries listed in folders that are not being visited yet
constexpr std::size_t kWeightOfFolder = 512;  // a folder counts as so many: it holds a descriptor

/// After a shortage of descriptors the caller lists so many folders alone before helpers may take some again
/// (hysteresis): most likely they would still be short, and the host needs them too.
constexpr std::size_t kAloneAfterShortage = 32;

/// Batches the items that are no folders into looks at neighbours. Pointers to steps are valid from here on.
void cutIntoLooks(WalkedFolder& folder) {
  folder.looks.reserve(folder.items.size() / kFilesAtATime + folder.folders.size() + 1);
  std::size_t at = 0;
  const auto addLooks = [&](std::size_t end) {
    for (; at < end; at = std::min(end, at + kFilesAtATime))
      folder.looks.push_back({&folder, false, at, std::min(end, at + kFilesAtATime)});
  };
  for (std::size_t i = 0; i < folder.items.size(); ++i) {
    if (folder.items[i].folder == nullptr) continue;
    addLooks(i);
    at = i + 1;
  }
  addLooks(folder.items.size());
}

}  // namespace

WalkSchedule::WalkSchedule(const std::string& folder, const std::string& attribute)
    : reader_(attribute, folder), mostHelpers_(usefulHelpers(folder, kMostHelpers)) {}

void WalkSchedule::help() {
  MutexLock lock(mutex_);
  while (true) {
    while (!finished_ && !canGoAhead()) changed_.wait(lock);
    if (finished_) return;
    goAhead();
  }
}

bool WalkSchedule::canGoAhead() const {
  return !isPaused_ && (!looks_.empty() || (!lists_.empty() && !isFull_ && aloneFor_ == 0));
}

/// Does what is needed next. Looks cost little memory and come first; listings wait while much is listed.
void WalkSchedule::goAhead() {
  auto& stack = looks_.empty() ? lists_ : looks_;
  WalkStep& step = *stack.back();
  stack.pop_back();
  carryOut(step);
}

/// The mutex is free while the volume is asked.
void WalkSchedule::carryOut(WalkStep& step) {
  step.begun = true;
  ++inProgress_;
  mutex_.unlock();
  if (step.lists) {
    reader_.list(*step.folder);
  } else {
    reader_.look(*step.folder, step.begin, step.end);
  }
  mutex_.lock();
  if (step.lists) {
    aloneFor_ =
        step.folder->isStarved ? kAloneAfterShortage : aloneFor_ - std::min<std::size_t>(aloneFor_, 1);
    announce(*step.folder);
  }
  step.done = true;
  --inProgress_;
  if (needed_ == &step || finished_ || isPaused_) changed_.notifyAll();
  callHelpers();
}

/// Puts what a listed folder needs on the stacks.
void WalkSchedule::announce(WalkedFolder& folder) {
  if (finished_) return;
  folder.weight = kWeightOfFolder + folder.items.size();
  ahead_ += folder.weight;
  isFull_ = isFull_ || ahead_ >= kMostAhead;
  listedAhead_.push_back(&folder);
  cutIntoLooks(folder);
  for (auto step = folder.looks.rbegin(); step != folder.looks.rend(); ++step) looks_.push_back(&*step);
  for (auto sub = folder.folders.rbegin(); sub != folder.folders.rend(); ++sub)
    lists_.push_back(&(*sub)->listing);
  if (canGoAhead()) changed_.notifyAll();
}

/// As many as there is work for; a walk without one is slower and as good.
void WalkSchedule::callHelpers() {
  while (!finished_ && helpers_ < mostHelpers_ && looks_.size() + lists_.size() > helpers_ + 1) {
    ++helpers_;
    mutex_.unlock();
    const bool comes = offerHelper([schedule = shared_from_this()] { schedule->help(); });
    mutex_.lock();
    if (!comes) mostHelpers_ = 0;
  }
}

void WalkSchedule::addListing(WalkedFolder& folder) {
  const MutexLock lock(mutex_);
  lists_.push_back(&folder.listing);
}

void WalkSchedule::need(WalkStep& step) {
  MutexLock lock(mutex_);
  while (!step.done) {
    if (!step.begun) {
      takeAndCarryOut(step);
    } else if (canGoAhead()) {
      goAhead();
    } else {
      needed_ = &step;
      changed_.wait(lock);
      needed_ = nullptr;
    }
  }
}

void WalkSchedule::takeAndCarryOut(WalkStep& step) {
  // On top, but for what helpers put there since: they list folders side by side.
  auto& stack = step.lists ? lists_ : looks_;
  stack.erase(std::next(std::find(stack.rbegin(), stack.rend(), &step)).base());
  carryOut(step);
}

void WalkSchedule::beginVisit(const WalkedFolder& folder) {
  const MutexLock lock(mutex_);
  ahead_ -= folder.weight;
  std::erase(listedAhead_, &folder);
  if (!isFull_ || ahead_ >= kMostAhead / 2) return;  // hysteresis: there is to be room for a while
  isFull_ = false;
  changed_.notifyAll();
}

void WalkSchedule::listStarved(WalkedFolder& folder) {
  MutexLock lock(mutex_);
  isPaused_ = true;
  while (inProgress_ != 0) changed_.wait(lock);
  closeFoldersBesides(folder);
  reader_.list(folder);  // under the mutex, for which nobody has anything to do meanwhile
  isPaused_ = false;
  if (folder.isStarved) {
    OrvaneLog::defaultLog().logError("KMV_FileWalk-No descriptor was left to list the folder at path: '" +
                                     folder.path + "', its files are not counted.");
  }
  announce(folder);
}

/// Those listed ahead and those above it. Their items are asked for by path then.
void WalkSchedule::closeFoldersBesides(const WalkedFolder& folder) {
  for (WalkedFolder* ahead : listedAhead_) ahead->descriptor.reset();
  for (WalkedFolder* above = folder.parent; above != nullptr; above = above->parent)
    above->descriptor.reset();
}

void WalkSchedule::end() {
  MutexLock lock(mutex_);
  finished_ = true;
  lists_.clear();
  looks_.clear();
  changed_.notifyAll();
  while (inProgress_ != 0) changed_.wait(lock);
}

}  // namespace kmv
