// SPDX-License-Identifier: MIT
#include "platform/linux/FileWalk.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <deque>
#include <iterator>
#include <memory>
#include <mutex>
#include <optional>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "platform/linux/FileDescriptor.h"
#include "platform/linux/LinuxAttributes.h"
#include "platform/linux/WorkerPool.h"

namespace kmv {
namespace {

constexpr std::size_t kFilesAtATime = 32;       // of one folder, looked at by one thread
constexpr std::size_t kMostHelpers = 7;         // beside the caller
constexpr std::size_t kMostAhead = 16384;       // entries listed and not visited yet
constexpr std::size_t kWeightOfFolder = 512;    // a folder counts as so many: it holds a descriptor
constexpr std::size_t kDeepestKeptOpen = 64;    // folders further down are opened by path
constexpr std::size_t kListBuffer = 32 * 1024;  // bytes
constexpr int kMaximumLinks = 40;               // as many as the kernel follows in one path
constexpr std::size_t kLongestValue = 256;      // longer ones are asked for once more, by path
constexpr unsigned kTypeAndSize = STATX_TYPE | STATX_SIZE;
constexpr int kLook = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT | AT_STATX_DONT_SYNC;
constexpr int kOpenFolder = O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK;

#ifndef SYS_getxattrat
constexpr long SYS_getxattrat = 464;
#endif
struct GetxattratArguments {
  alignas(8) std::uint64_t value;
  std::uint32_t size;
  std::uint32_t flags;
};

enum class What : std::uint8_t { unknown, file, folder, link, nothing };

struct Folder;

struct Item {
  std::uint32_t nameAt = 0;
  What what = What::unknown;
  std::uint64_t size = 0;
  std::optional<std::string> attribute = {};
  Folder* folder = nullptr;  // where it is one
};

/// Something to be done, in the order of need.
struct Step {
  Folder* folder = nullptr;
  bool lists = false;  // the folder; else looks at the items from `begin` to `end`
  std::size_t begin = 0;
  std::size_t end = 0;
  bool begun = false;
  bool done = false;
};

/// A folder, from its being met to the visit of its last item.
struct Folder {
  explicit Folder(std::string pathToIt, Folder* enclosing)
      : path(std::move(pathToIt)), parent(enclosing), depth(enclosing == nullptr ? 0 : enclosing->depth + 1) {
    listing.folder = this;
    listing.lists = true;
  }
  const char* nameOf(const Item& item) const { return names.data() + item.nameAt; }

  std::string path;
  Folder* parent;
  std::size_t depth;
  int linksFollowed = 0;
  FileDescriptor descriptor;
  std::string names;  // each with its NUL
  std::vector<Item> items;
  std::deque<Step> looks;
  Step listing;
  std::deque<std::unique_ptr<Folder>> folders;
  std::size_t weight = 0;
  bool isNone = false;  // the listing's word against the item's own
};

/// False for what the platform keeps to itself.
bool isListedName(std::string_view name) {
  return name != "." && name != ".." && !name.starts_with("._");
}

What whatOf(std::uint16_t mode) {
  if (S_ISDIR(mode)) return What::folder;
  return S_ISLNK(mode) ? What::link : What::file;
}

/// The walk's state, shared with its helpers. A helper that hangs in a dead server keeps it alive.
class Walk : public std::enable_shared_from_this<Walk> {
 public:
  Walk(std::string attribute, const std::function<void(const WalkedFile&)>& visit)
      : plainName_(std::move(attribute)), name_(attributeNameInSpace(plainName_)), visit_(visit) {}

  void run(const std::string& folder) {
    Folder root(folder, nullptr);
    mostHelpers_ = helpersFor(folder);
    {
      const std::lock_guard lock(mutex_);
      steps_.push_back(&root.listing);
    }
    visitFolder(root);
    const std::lock_guard lock(mutex_);
    finished_ = true;
    changed_.notify_all();
  }

  void help() {
    std::unique_lock lock(mutex_);
    for (;;) {
      changed_.wait(lock, [this] { return finished_ || (!steps_.empty() && ahead_ < aheadLimit()); });
      if (finished_) return;
      doTop(lock);
    }
  }

 private:
  /// A disk of this machine is kept busy by as many threads as there are processors; what has a server behind
  /// it answers several requests at a time, however far away.
  static std::size_t helpersFor(const std::string& folder) {
    if (::statx(AT_FDCWD, folder.c_str(), AT_NO_AUTOMOUNT | AT_STATX_DONT_SYNC, STATX_TYPE, &scratch()) != 0)
      return 0;
    if (scratch().stx_dev_major == 0) return kMostHelpers;
    return std::clamp<std::size_t>(std::thread::hardware_concurrency(), 2, kMostHelpers + 1) - 1;
  }

  /// Helpers that had to stop go on only when there is room for a while.
  std::size_t aheadLimit() {
    paused_ = ahead_ >= (paused_ ? kMostAhead / 2 : kMostAhead);
    return paused_ ? kMostAhead / 2 : kMostAhead;
  }

  // --- Steps. The stack holds what nobody has begun, what is needed first on top. ---

  void doTop(std::unique_lock<std::mutex>& lock) {
    Step& step = *steps_.back();
    steps_.pop_back();
    carryOut(step, lock);
  }

  void carryOut(Step& step, std::unique_lock<std::mutex>& lock) {
    step.begun = true;
    lock.unlock();
    if (step.lists) {
      list(*step.folder);
    } else {
      look(*step.folder, step.begin, step.end);
    }
    lock.lock();
    if (step.lists) announce(*step.folder);
    step.done = true;
    if (needed_ == &step) changed_.notify_all();
  }

  /// Puts what a listed folder needs on the stack. REQUIRES: the lock is held.
  void announce(Folder& folder) {
    folder.weight = kWeightOfFolder + folder.items.size();
    ahead_ += folder.weight;
    std::vector<Step*> order;
    std::size_t at = 0;
    const auto addLooks = [&](std::size_t end) {
      for (; at < end; at = std::min(end, at + kFilesAtATime)) {
        folder.looks.push_back({&folder, false, at, std::min(end, at + kFilesAtATime)});
        order.push_back(&folder.looks.back());
      }
    };
    for (std::size_t i = 0; i < folder.items.size(); ++i) {
      if (folder.items[i].folder == nullptr) continue;
      addLooks(i);
      order.push_back(&folder.items[i].folder->listing);
      at = i + 1;
    }
    addLooks(folder.items.size());
    steps_.insert(steps_.end(), order.rbegin(), order.rend());
    callHelpers();
  }

  /// REQUIRES: the lock is held.
  void callHelpers() {
    class Helper : public Work {
     public:
      explicit Helper(std::shared_ptr<Walk> walk) : walk_(std::move(walk)) {}
      void runOnWorker() override {
        const WorkerPool::WaitingScope waiting;  // for a volume: it takes nobody's turn
        walk_->help();
      }

     private:
      std::shared_ptr<Walk> walk_;
    };
    while (helpers_ < mostHelpers_ && steps_.size() > helpers_ + 1) {
      ++helpers_;
      WorkerPool::shared().submit(std::make_shared<Helper>(shared_from_this()));
    }
    if (steps_.size() > 1) changed_.notify_all();
  }

  /// Returns when the step is done; does it, or others meanwhile, where that helps.
  void need(Step& step) {
    std::unique_lock lock(mutex_);
    while (!step.done) {
      if (!step.begun) {
        // On top, but for what helpers put there since: they list folders side by side.
        steps_.erase(std::next(std::find(steps_.rbegin(), steps_.rend(), &step)).base());
        carryOut(step, lock);
        continue;
      }
      if (!steps_.empty() && ahead_ < kMostAhead) {
        doTop(lock);
        continue;
      }
      needed_ = &step;
      changed_.wait(lock);
      needed_ = nullptr;
    }
  }

  // --- The caller's side: everything in listing order. ---

  void visitFolder(Folder& folder) {
    need(folder.listing);
    if (folder.depth >= kDeepestKeptOpen) {
      for (Step& look : folder.looks) need(look);
      folder.descriptor.reset();
    }
    auto look = folder.looks.begin();
    for (std::size_t i = 0; i < folder.items.size(); ++i) {
      Item& item = folder.items[i];
      if (item.folder == nullptr) {
        while (look->end <= i) ++look;
        if (look->begin == i) need(*look);
      }
      visitItem(folder, item);
    }
    const std::lock_guard lock(mutex_);
    const bool wasFull = ahead_ >= kMostAhead / 2;
    ahead_ -= folder.weight;
    if (wasFull && ahead_ < kMostAhead / 2) changed_.notify_all();
  }

  /// Nobody could tidy up after an exception of the visitor: helpers are at work on what it would take away.
  void visitItem(Folder& folder, Item& item) noexcept {
    if (item.what == What::nothing) return;
    const char* const name = folder.nameOf(item);
    if (folder.path.size() + 1 + std::strlen(name) >= PATH_MAX) return;  // no call could name it
    path_.assign(folder.path).append("/").append(name);
    if (item.what == What::link) {
      if (!followLink(folder, item)) return;
    }
    if (item.what == What::folder) {
      if (item.folder == nullptr) {  // seen only now: a link, or a system that tells no types
        auto found = std::make_unique<Folder>(path_, &folder);
        found->linksFollowed = folder.linksFollowed;
        visitFound(std::move(found));
        return;
      }
      visitFolder(*item.folder);
      const bool isNone = item.folder->isNone;
      item.folder = nullptr;
      folder.folders.pop_front();
      if (!isNone || !fill(item, ::statx(AT_FDCWD, path_.c_str(), kLook, kTypeAndSize, &scratch()))) return;
      if (item.size == 0 && !plainName_.empty())
        item.attribute = LinuxExtendedAttributes().get(path_, plainName_);
    }
    std::optional<std::string_view> attribute;
    if (item.attribute) attribute = *item.attribute;
    visit_({path_, item.size, attribute});
  }

  void visitFound(std::unique_ptr<Folder> folder) {
    {
      const std::lock_guard lock(mutex_);
      steps_.push_back(&folder->listing);
    }
    visitFolder(*folder);
  }

  /// A link to a file counts as itself; one to a folder is walked unless that is being walked. False when the
  /// item is dealt with.
  bool followLink(Folder& folder, Item& item) {
    struct stat target {};
    if (::stat(path_.c_str(), &target) != 0) return false;  // leads nowhere
    if (!S_ISDIR(target.st_mode)) {
      if (item.size == 0 && !plainName_.empty())
        item.attribute = LinuxExtendedAttributes().get(path_, plainName_);
      return true;
    }
    if (folder.linksFollowed == kMaximumLinks) return false;
    for (const Folder* above = &folder; above != nullptr; above = above->parent) {
      struct stat known {};
      if (::stat(above->path.c_str(), &known) == 0 && known.st_dev == target.st_dev &&
          known.st_ino == target.st_ino)
        return false;
    }
    auto found = std::make_unique<Folder>(path_, &folder);
    found->linksFollowed = folder.linksFollowed + 1;
    visitFound(std::move(found));
    return false;
  }

  // --- Any thread's side: questions to the volume. ---

  void list(Folder& folder) {
    Folder* const parent = folder.parent;
    if (parent != nullptr && parent->depth < kDeepestKeptOpen && parent->descriptor) {
      const std::size_t name = folder.path.rfind('/') + 1;
      folder.descriptor =
          FileDescriptor(::openat(parent->descriptor.get(), folder.path.c_str() + name, kOpenFolder));
    } else {
      folder.descriptor = FileDescriptor(::open(folder.path.c_str(), kOpenFolder));
    }
    folder.isNone = !folder.descriptor && errno == ENOTDIR;
    if (!folder.descriptor) return;
    alignas(dirent64) std::array<char, kListBuffer> buffer;
    for (;;) {
      const long got = ::syscall(SYS_getdents64, folder.descriptor.get(), buffer.data(), buffer.size());
      if (got < 0) forget(folder);
      if (got <= 0) break;
      for (long at = 0; at < got;) {
        const auto* entry = reinterpret_cast<const dirent64*>(buffer.data() + at);
        at += entry->d_reclen;
        if (isListedName(entry->d_name)) addItem(folder, *entry);
      }
    }
  }

  /// What is not listed to its end is not listed.
  static void forget(Folder& folder) {
    folder.items.clear();
    folder.folders.clear();
  }

  void addItem(Folder& folder, const dirent64& entry) {
    Item item;
    item.nameAt = static_cast<std::uint32_t>(folder.names.size());
    folder.names.append(entry.d_name, std::strlen(entry.d_name) + 1);
    if (entry.d_type == DT_DIR) {
      item.what = What::folder;
      const std::string_view name(entry.d_name);
      if (folder.path.size() + 1 + name.size() < PATH_MAX) {
        std::string path;
        path.reserve(folder.path.size() + 1 + name.size());
        path.append(folder.path).append("/").append(name);
        folder.folders.push_back(std::make_unique<Folder>(std::move(path), &folder));
        folder.folders.back()->linksFollowed = folder.linksFollowed;
        item.folder = folder.folders.back().get();
      } else {
        item.what = What::nothing;
      }
    }
    folder.items.push_back(std::move(item));
  }

  void look(Folder& folder, std::size_t begin, std::size_t end) {
    for (std::size_t i = begin; i < end; ++i) {
      if (folder.items[i].what == What::unknown) lookAt(folder.descriptor.get(), folder, folder.items[i]);
    }
  }

  void lookAt(int descriptor, const Folder& folder, Item& item) {
    const char* const name = folder.nameOf(item);
    if (cachesNothing_.load(std::memory_order_relaxed)) {
      lookThroughItem(descriptor, name, item);
      return;
    }
    if (!fill(item, ::statx(descriptor, name, kLook, kTypeAndSize, &scratch())) || item.what != What::file ||
        item.size != 0)
      return;
    if (plainName_.empty()) return;
    if (!cacheIsKnown_.exchange(true)) cachesNothing_ = !isInCache(descriptor, name);
    item.attribute = valueByName(descriptor, name);
  }

  static struct statx& scratch() {
    thread_local struct statx status;
    return status;
  }

  static bool fill(Item& item, int result) {
    item.what = result == 0 ? whatOf(scratch().stx_mode) : What::nothing;
    item.size = result == 0 ? scratch().stx_size : 0;
    return result == 0;
  }

  /// Where the kernel keeps nothing, each look by name is a request of its own: one for all questions.
  void lookThroughItem(int descriptor, const char* name, Item& item) {
    const FileDescriptor handle(::openat(descriptor, name, O_PATH | O_NOFOLLOW | O_CLOEXEC));
    if (!handle) {
      item.what = What::nothing;
      return;
    }
    fill(item, ::statx(handle.get(), "", AT_EMPTY_PATH | kLook, kTypeAndSize, &scratch()));
    if (item.what != What::file || item.size != 0) return;
    std::array<char, 40> path;
    std::snprintf(path.data(), path.size(), "/proc/self/fd/%d", handle.get());
    item.attribute = firstValue([&](const char* attribute, char* value, std::size_t size) {
      return ::getxattr(path.data(), attribute, value, size);
    });
  }

  /// Whether a name that was just looked up is still known, so that the next look costs no request.
  static bool isInCache(int descriptor, const char* name) {
    open_how how{};
    how.flags = O_PATH | O_NOFOLLOW | O_CLOEXEC;
    how.resolve = RESOLVE_CACHED;
    const FileDescriptor handle(static_cast<int>(::syscall(SYS_openat2, descriptor, name, &how, sizeof how)));
    return handle || errno != EAGAIN;
  }

  std::optional<std::string> valueByName(int descriptor, const char* name) {
    return firstValue([&](const char* attribute, char* value, std::size_t size) -> ssize_t {
      if (hasGetxattrat_.load(std::memory_order_relaxed)) {
        GetxattratArguments arguments{reinterpret_cast<std::uintptr_t>(value),
                                      static_cast<std::uint32_t>(size), 0};
        const long got = ::syscall(SYS_getxattrat, descriptor, name, AT_SYMLINK_NOFOLLOW, attribute,
                                   &arguments, sizeof arguments);
        if (got >= 0 || (errno != ENOSYS && errno != EPERM)) return got;
        if (errno == ENOSYS) hasGetxattrat_ = false;
      }
      // Before kernel 6.13, and where a container forbids what it does not know.
      std::array<char, 40 + NAME_MAX + 1> path;
      std::snprintf(path.data(), path.size(), "/proc/self/fd/%d/%s", descriptor, name);
      return ::lgetxattr(path.data(), attribute, value, size);
    });
  }

  /// The value under the name in the name space, or under the plain one where the file system may serve that.
  template <typename Get>
  std::optional<std::string> firstValue(const Get& get) {
    if (plainName_.empty()) return std::nullopt;
    std::array<char, kLongestValue> value;
    ssize_t size = get(name_.c_str(), value.data(), value.size());
    if (size < 0 && name_ != plainName_ && mayBePlainAttribute(errno))
      size = get(plainName_.c_str(), value.data(), value.size());
    if (size < 0) return std::nullopt;
    return std::string(value.data(), static_cast<std::size_t>(size));
  }

  const std::string plainName_;
  const std::string name_;
  const std::function<void(const WalkedFile&)>& visit_;
  std::string path_;  // of the item that is visited

  std::atomic<bool> cacheIsKnown_{false};
  std::atomic<bool> cachesNothing_{false};
  std::atomic<bool> hasGetxattrat_{true};

  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<Step*> steps_;
  const Step* needed_ = nullptr;
  std::size_t ahead_ = 0;
  std::size_t helpers_ = 0;
  std::size_t mostHelpers_ = 0;
  bool paused_ = false;
  bool finished_ = false;
};

}  // namespace

void walkFiles(const std::string& folder, const std::string& attribute,
               const std::function<void(const WalkedFile&)>& visit) {
  const WorkerPool::WaitingScope waiting;
  std::make_shared<Walk>(attribute, visit)->run(folder);
}

}  // namespace kmv
