// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Mutex.h>

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "platform/posix/WalkReader.h"
#include "platform/posix/WalkedFolder.h"

namespace kmv {

/// The order in which the caller of a walk and its helpers carry out the steps. Shared with the helpers: the
/// last of them may notice the walk's end after the caller has.
/// Threads: any; what the comments call the caller's side is the walk's thread alone.
class WalkSchedule : public std::enable_shared_from_this<WalkSchedule> {
 public:
  WalkSchedule(const std::string& folder, const std::string& attribute);

  // --- The caller's side. ---

  void addListing(WalkedFolder& folder);

  /// Returns when the step is done; does it, or others meanwhile, where that helps.
  void need(WalkStep& step);

  void beginVisit(const WalkedFolder& folder);

  /// Lists a starved folder after all, with the descriptors that other folders give up for it. The log tells
  /// when that is in vain: somebody else has taken them.
  void listStarved(WalkedFolder& folder);

  /// From here on no folder is looked at: those on the caller's stack may go.
  void end();

  ItemLook& items() { return reader_.items(); }

 private:
  void help();
  bool canGoAhead() const KMV_REQUIRES(mutex_);
  void goAhead() KMV_REQUIRES(mutex_);
  void carryOut(WalkStep& step) KMV_REQUIRES(mutex_);
  void announce(WalkedFolder& folder) KMV_REQUIRES(mutex_);
  void callHelpers() KMV_REQUIRES(mutex_);
  void takeAndCarryOut(WalkStep& step) KMV_REQUIRES(mutex_);
  void closeFoldersBesides(const WalkedFolder& folder) KMV_REQUIRES(mutex_);

  WalkReader reader_;
  Mutex mutex_;
  ConditionVariable changed_;
  // The two stacks hold what nobody has begun, what is needed first on top.
  std::vector<WalkStep*> lists_ KMV_GUARDED_BY(mutex_);
  std::vector<WalkStep*> looks_ KMV_GUARDED_BY(mutex_);
  const WalkStep* needed_ KMV_GUARDED_BY(mutex_) = nullptr;
  std::vector<WalkedFolder*> listedAhead_ KMV_GUARDED_BY(mutex_);
  std::size_t ahead_ KMV_GUARDED_BY(mutex_) = 0;  // the sum of their weights
  bool isFull_ KMV_GUARDED_BY(mutex_) = false;
  std::size_t aloneFor_ KMV_GUARDED_BY(mutex_) = 0;  // listings; only the caller opens folders meanwhile
  bool isPaused_ KMV_GUARDED_BY(mutex_) = false;     // nobody begins a step
  std::size_t inProgress_ KMV_GUARDED_BY(mutex_) = 0;
  std::size_t helpers_ KMV_GUARDED_BY(mutex_) = 0;
  std::size_t mostHelpers_ KMV_GUARDED_BY(mutex_);
  bool finished_ KMV_GUARDED_BY(mutex_) = false;
};

}  // namespace kmv
