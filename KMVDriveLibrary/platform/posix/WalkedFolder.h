// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/posix/FileDescriptor.h"
#include "platform/posix/FolderReader.h"
#include "platform/posix/ItemLook.h"

namespace kmv {

struct WalkedFolder;

struct WalkedItem : SeenItem {
  std::uint32_t nameAt = 0;
  WalkedFolder* folder = nullptr;  // where it is one
};

/// Something to be done, in the order of need. `begun` and `done` are guarded by the schedule's mutex.
struct WalkStep {
  WalkedFolder* folder = nullptr;
  bool lists = false;  // the folder; else looks at the items from `begin` to `end`
  std::size_t begin = 0;
  std::size_t end = 0;
  bool begun = false;
  bool done = false;
};

/// A folder, from its discovery to the visit of its last item. Whoever carries out one of its steps owns what
/// that fills; the schedule hands it on to the caller of the walk, under its mutex.
struct WalkedFolder {
  /// The root of the walk, or what was found to be a folder when it was visited.
  WalkedFolder(std::string pathToIt, WalkedFolder* enclosing, int links)
      : path(std::move(pathToIt)), parent(enclosing), linksFollowed(links) {
    prepare();
  }
  /// One that `enclosing` lists as a folder; its path is put together lazily, when it is listed itself.
  WalkedFolder(WalkedFolder* enclosing, std::uint32_t nameInIt)
      : parent(enclosing), linksFollowed(enclosing->linksFollowed), nameAt(nameInIt) {
    prepare();
  }
  WalkedFolder(const WalkedFolder&) = delete;
  WalkedFolder& operator=(const WalkedFolder&) = delete;

  const char* nameOf(const WalkedItem& item) const { return names.data() + item.nameAt; }

  std::string path;
  WalkedFolder* parent;
  std::size_t depth = 0;
  int linksFollowed;
  std::uint32_t nameAt = 0;
  bool isFollowed = false;    // when it is a link; what is listed as a folder is to be one
  bool isNone = false;        // the listing said folder, the item is not one
  bool isStarved = false;     // there was no descriptor left to open it
  FileDescriptor descriptor;  // none any more where descriptors are short: its items are known by path then
  FolderIdentity identity;
  std::string names;  // each with its NUL
  std::vector<WalkedItem> items;
  std::vector<WalkStep> looks;
  WalkStep listing;
  std::vector<std::unique_ptr<WalkedFolder>> folders;
  std::size_t visited = 0;  // of them
  std::size_t weight = 0;

 private:
  void prepare() {
    if (parent != nullptr) depth = parent->depth + 1;
    listing.folder = this;
    listing.lists = true;
  }
};

}  // namespace kmv
