// SPDX-License-Identifier: MIT
#include "platform/linux/mounts/StatmountWatcher.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "platform/linux/mounts/MountInfoWatcher.h"

namespace kmv {

std::optional<MountTableWatcher::Changes> StatmountWatcher::refresh(bool anew) {
  changes_.clear();
  const bool lost =
      takeReports();  // before the table is compared, so that what comes meanwhile is reported again
  if (instead_) return readInstead(anew);
  isComplete_ = isComplete_ && !lost && !known_.takeFailure();
  if (!isComplete_ || anew) {
    known_.compareAll(anew);
    endDifference();
    isComplete_ = !known_.takeFailure();
  }
  if (known_.isRefused()) {
    instead_ = std::make_unique<MountInfoWatcher>(options_, known_.all());
    instead_->setReason("listmount and statmount were refused since " + ownName() + " began");
    return readInstead(/*anew=*/true);
  }
  if (!isComplete_ && changes_.empty()) return std::nullopt;
  return std::move(changes_);
}

std::optional<MountTableWatcher::Changes> StatmountWatcher::readInstead(bool anew) {
  std::optional<Changes> more = instead_->refresh(anew);
  if (!more && changes_.empty()) return std::nullopt;
  if (more) std::move(more->begin(), more->end(), std::back_inserter(changes_));
  return std::move(changes_);
}

void StatmountWatcher::endDifference() {
  MountDelta delta = known_.takeDelta();
  if (!delta.empty()) changes_.push_back(std::move(delta));
}

std::string StatmountWatcher::name() const {
  return instead_ ? instead_->name() : ownName();
}

}  // namespace kmv
