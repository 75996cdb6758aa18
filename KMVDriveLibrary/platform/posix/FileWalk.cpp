// SPDX-License-Identifier: MIT
#include "platform/posix/FileWalk.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <climits>
#include <cstring>
#include <memory>
#include <optional>
#include <string_view>

#include "platform/posix/Retry.h"
#include "platform/posix/WalkSchedule.h"

namespace kmv {
namespace {

constexpr int kMaximumLinks = 40;  // as many as the kernel follows in one path

/// What the path leads to, links followed. A function of its own: the buffer would be on the stack for each
/// level.
[[gnu::noinline]] What whatStandsAt(const char* path) {
  struct stat target {};
  if (retryOnEINTR([&] { return ::stat(path, &target); }) != 0) return What::nothing;
  return S_ISDIR(target.st_mode) ? What::folder : What::file;
}

/// The caller's side of a walk: everything in listing order. Its `visit...` members return false when the
/// visitor has had enough.
class Walk {
 public:
  Walk(const std::string& folder, const std::string& attribute, const VisitFile& visit)
      : schedule_(std::make_shared<WalkSchedule>(folder, attribute)), visit_(visit) {}

  /// `noexcept` stops the process: unwinding would destroy what helpers are at work on.
  void run(const std::string& folder) noexcept {
    WalkedFolder root(folder, nullptr, 0);
    root.isFollowed = true;
    schedule_->addListing(root);
    if (visitFolder(root)) schedule_->end();
  }

 private:
  bool visitFolder(WalkedFolder& folder) {
    prepare(folder);
    auto look = folder.looks.begin();
    for (std::size_t i = 0; i < folder.items.size(); ++i) {
      WalkedItem& item = folder.items[i];
      if (item.folder == nullptr) {
        while (look->end <= i) ++look;
        if (look->begin == i) schedule_->need(*look);
      }
      if (!visitItem(folder, item)) return false;
    }
    return true;
  }

  void prepare(WalkedFolder& folder) {
    schedule_->need(folder.listing);
    schedule_->beginVisit(folder);
    if (folder.isStarved) {
      schedule_->listStarved(folder);
      schedule_->beginVisit(folder);
    }
    if (folder.depth < WalkReader::kDeepestKeptOpen) return;
    for (WalkStep& look : folder.looks) schedule_->need(look);
    folder.descriptor.reset();
  }

  bool visitItem(WalkedFolder& folder, WalkedItem& item) {
    if (folder.path.size() + 1 + std::strlen(folder.nameOf(item)) >= PATH_MAX)
      return true;  // no call could name it
    if (item.folder != nullptr) {
      if (!visitFolder(*item.folder)) return false;
      const bool isNone = item.folder->isNone;
      item.folder = nullptr;
      folder.folders[folder.visited++] = nullptr;
      if (!isNone) return true;
      namePath(folder, item);
      schedule_->items().lookAt(AT_FDCWD, path_.c_str(), item);
    } else {
      namePath(folder, item);
    }
    return visitSeen(folder, item);
  }

  void namePath(const WalkedFolder& folder, const WalkedItem& item) {
    path_.assign(folder.path).append("/").append(folder.nameOf(item));
  }

  bool visitSeen(WalkedFolder& folder, WalkedItem& item) {
    if (item.what == What::folder)  // which the system did not tell when it was listed
      return visitFound(folder, folder.linksFollowed);
    if (item.what == What::link) {
      const What target = whatStandsAt(path_.c_str());
      if (target == What::nothing) return true;
      if (target == What::folder)
        return folder.linksFollowed == kMaximumLinks || visitFound(folder, folder.linksFollowed + 1);
      if (item.size == 0) item.attribute = schedule_->items().valueByPath(path_);
    }
    if (item.what == What::nothing || item.what == What::unknown) return true;
    return report(item);
  }

  bool report(const WalkedItem& item) {
    std::optional<std::string_view> attribute;
    if (item.attribute) attribute = *item.attribute;
    const bool goesOn = visit_({path_, item.size, attribute});
    if (!goesOn) schedule_->end();
    return goesOn;
  }

  bool visitFound(WalkedFolder& around, int linksFollowed) {
    const auto found = std::make_unique<WalkedFolder>(path_, &around, linksFollowed);  // stacks may be small
    found->isFollowed = linksFollowed > around.linksFollowed;
    schedule_->addListing(*found);
    return visitFolder(*found);
  }

  std::shared_ptr<WalkSchedule> schedule_;
  const VisitFile& visit_;
  std::string path_;  // of the item that is visited
};

}  // namespace

void walkFiles(const std::string& folder, const std::string& attribute, const VisitFile& visit) {
  Walk(folder, attribute, visit).run(folder);
}

}  // namespace kmv
