// SPDX-License-Identifier: MIT
#include "platform/linux/files/FileWalk.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <condition_variable>
#include <cstring>
#include <iterator>
#include <memory>
#include <mutex>
#include <optional>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "platform/linux/files/ItemLook.h"
#include "platform/linux/queues/WorkerPool.h"
#include "platform/posix/FileDescriptor.h"

namespace kmv {
namespace {

constexpr std::size_t kFilesAtATime = 32;       // of one folder, looked at by one thread
constexpr std::size_t kMostHelpers = 7;         // beside the caller
constexpr std::size_t kMostAhead = 16384;       // entries listed in folders that are not being visited yet
constexpr std::size_t kWeightOfFolder = 512;    // a folder counts as so many: it holds a descriptor
constexpr std::size_t kDeepestKeptOpen = 64;    // folders further down are opened by path
constexpr std::size_t kListBuffer = 32 * 1024;  // bytes
constexpr std::size_t kLongestListing = std::size_t{1} << 28;  // bytes of names; a folder with more is none
constexpr int kMaximumLinks = 40;                              // as many as the kernel follows in one path
constexpr int kOpenFolder = O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK;

struct Folder;

struct Item : SeenItem {
  std::uint32_t nameAt = 0;
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
  /// The root of the walk, or what was found to be a folder when it was visited.
  Folder(std::string pathToIt, Folder* enclosing, int links)
      : path(std::move(pathToIt)), parent(enclosing), linksFollowed(links) {
    prepare();
  }
  /// One that `enclosing` lists as a folder; its path is put together when it is listed itself.
  Folder(Folder* enclosing, std::uint32_t nameInIt)
      : parent(enclosing), linksFollowed(enclosing->linksFollowed), nameAt(nameInIt) {
    prepare();
  }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;

  const char* nameOf(const Item& item) const { return names.data() + item.nameAt; }

  std::string path;
  Folder* parent;
  std::size_t depth = 0;
  int linksFollowed;
  std::uint32_t nameAt = 0;
  bool isFollowed = false;    // when it is a link; what is listed as a folder is to be one
  bool isNone = false;        // the listing's word against the item's own
  bool isStarved = false;     // there was no descriptor left to open it
  FileDescriptor descriptor;  // none any more where descriptors are short: its items are known by path then
  dev_t device = 0;
  ino_t inode = 0;
  std::string names;  // each with its NUL
  std::vector<Item> items;
  std::vector<Step> looks;
  Step listing;
  std::vector<std::unique_ptr<Folder>> folders;
  std::size_t visited = 0;  // of them
  std::size_t weight = 0;

 private:
  void prepare() {
    if (parent != nullptr) depth = parent->depth + 1;
    listing.folder = this;
    listing.lists = true;
  }
};

/// False for what the platform keeps to itself.
bool isListedName(std::string_view name) {
  return name != "." && name != ".." && !name.starts_with("._");
}

/// The walk's state, shared with its helpers: the last of them may notice its end after the caller has.
class Walk : public std::enable_shared_from_this<Walk> {
 public:
  Walk(const std::string& folder, std::string attribute, const VisitFile& visit)
      : look_(std::move(attribute), folder), visit_(visit) {}

  /// Nobody could tidy up after an exception: helpers are at work on what it would take away.
  void run(const std::string& folder) noexcept {
    Folder root(folder, nullptr, 0);
    root.isFollowed = true;
    mostHelpers_ = helpersFor(folder);
    addListing(root);
    if (visitFolder(root)) end();
  }

  void help() {
    std::unique_lock lock(mutex_);
    for (;;) {
      changed_.wait(lock, [this] { return finished_ || canGoAhead(); });
      if (finished_) return;
      goAhead(lock);
    }
  }

 private:
  /// A disk of this machine is kept busy by as many threads as there are processors; what has a server behind
  /// it answers several requests at a time, however far away.
  static std::size_t helpersFor(const std::string& folder) {
    struct statx status {};
    if (::statx(AT_FDCWD, folder.c_str(), AT_NO_AUTOMOUNT, STATX_TYPE, &status) != 0) return 0;
    if (status.stx_dev_major == 0) return kMostHelpers;
    return std::clamp<std::size_t>(std::thread::hardware_concurrency(), 2, kMostHelpers + 1) - 1;
  }

  // --- Steps. The two stacks hold what nobody has begun, what is needed first on top. ---

  bool canGoAhead() const { return !looks_.empty() || (!lists_.empty() && !isFull_ && !isPoor_); }

  /// Does what is needed next. Looks cost little memory and come first; listings wait while much is listed.
  void goAhead(std::unique_lock<std::mutex>& lock) {
    auto& stack = looks_.empty() ? lists_ : looks_;
    Step& step = *stack.back();
    stack.pop_back();
    carryOut(step, lock);
  }

  void carryOut(Step& step, std::unique_lock<std::mutex>& lock) {
    step.begun = true;
    ++inProgress_;
    lock.unlock();
    if (step.lists) {
      list(*step.folder);
    } else {
      look(*step.folder, step.begin, step.end);
    }
    lock.lock();
    if (step.lists) {
      isPoor_ = isPoor_ || step.folder->isStarved;  // from here on only the caller opens folders
      announce(*step.folder);
    }
    step.done = true;
    --inProgress_;
    if (needed_ == &step || finished_) changed_.notify_all();
    callHelpers(lock);
  }

  /// Puts what a listed folder needs on the stacks. REQUIRES: the lock is held.
  void announce(Folder& folder) {
    if (finished_) return;
    folder.weight = kWeightOfFolder + folder.items.size();
    ahead_ += folder.weight;
    isFull_ = isFull_ || ahead_ >= kMostAhead;
    listedAhead_.push_back(&folder);
    folder.looks.reserve(folder.items.size() / kFilesAtATime + folder.folders.size() +
                         1);  // steps do not move
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
    for (auto step = folder.looks.rbegin(); step != folder.looks.rend(); ++step) looks_.push_back(&*step);
    for (auto sub = folder.folders.rbegin(); sub != folder.folders.rend(); ++sub)
      lists_.push_back(&(*sub)->listing);
    if (canGoAhead()) changed_.notify_all();
  }

  class Helper : public Work {
   public:
    explicit Helper(std::shared_ptr<Walk> walk) : walk_(std::move(walk)) {}
    void runOnWorker() override {
      const WorkerPool::WaitingScope waiting(
          WorkerPool::WaitsFor::volume);  // for a volume: it takes nobody's turn
      walk_->help();
    }

   private:
    std::shared_ptr<Walk> walk_;
  };

  /// As many as there is work for; a walk without one is slower and as good.
  void callHelpers(std::unique_lock<std::mutex>& lock) {
    while (!finished_ && helpers_ < mostHelpers_ && looks_.size() + lists_.size() > helpers_ + 1) {
      ++helpers_;
      lock.unlock();
      const bool comes = WorkerPool::shared().offer(std::make_shared<Helper>(shared_from_this()));
      lock.lock();
      if (!comes) mostHelpers_ = 0;
    }
  }

  void addListing(Folder& folder) {
    const std::lock_guard lock(mutex_);
    lists_.push_back(&folder.listing);
  }

  /// Returns when the step is done; does it, or others meanwhile, where that helps.
  void need(Step& step) {
    std::unique_lock lock(mutex_);
    while (!step.done) {
      if (!step.begun) {
        // On top, but for what helpers put there since: they list folders side by side.
        auto& stack = step.lists ? lists_ : looks_;
        stack.erase(std::next(std::find(stack.rbegin(), stack.rend(), &step)).base());
        carryOut(step, lock);
      } else if (canGoAhead()) {
        goAhead(lock);
      } else {
        needed_ = &step;
        changed_.wait(lock);
        needed_ = nullptr;
      }
    }
  }

  /// From here on no folder is looked at: those on the caller's stack may go.
  void end() {
    std::unique_lock lock(mutex_);
    finished_ = true;
    lists_.clear();
    looks_.clear();
    changed_.notify_all();
    changed_.wait(lock, [this] { return inProgress_ == 0; });
  }

  // --- The caller's side: everything in listing order. Each is false when the visitor has had enough. ---

  bool visitFolder(Folder& folder) {
    need(folder.listing);
    beginVisit(folder);
    if (folder.isStarved) {
      closeFoldersAhead();
      list(folder);
      std::unique_lock lock(mutex_);
      announce(folder);
      lock.unlock();
      beginVisit(folder);
    }
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
      if (!visitItem(folder, item)) return false;
    }
    return true;
  }

  void beginVisit(const Folder& folder) {
    const std::lock_guard lock(mutex_);
    ahead_ -= folder.weight;
    std::erase(listedAhead_, &folder);
    if (!isFull_ || ahead_ >= kMostAhead / 2) return;  // there is to be room for a while
    isFull_ = false;
    changed_.notify_all();
  }

  /// Those that nobody is at work on. Their items are asked for by path then.
  void closeFoldersAhead() {
    const auto isUnderWay = [](const Step& step) { return step.begun && !step.done; };
    const std::lock_guard lock(mutex_);
    for (Folder* folder : listedAhead_) {
      const bool isBusy = std::any_of(folder->looks.begin(), folder->looks.end(), isUnderWay) ||
                          std::any_of(folder->folders.begin(), folder->folders.end(),
                                      [&](const auto& sub) { return isUnderWay(sub->listing); });
      if (!isBusy) folder->descriptor.reset();
    }
  }

  bool visitItem(Folder& folder, Item& item) {
    const char* const name = folder.nameOf(item);
    if (folder.path.size() + 1 + std::strlen(name) >= PATH_MAX) return true;  // no call could name it
    path_.assign(folder.path).append("/").append(name);
    if (item.folder != nullptr) {
      const bool goesOn = visitFolder(*item.folder);
      if (!goesOn) return false;
      const bool isNone = item.folder->isNone;
      item.folder = nullptr;
      folder.folders[folder.visited++] = nullptr;
      if (!isNone) return true;
      path_.assign(folder.path).append("/").append(name);
      look_.lookAt(AT_FDCWD, path_.c_str(), item);
    }
    switch (item.what) {
      case What::nothing:
      case What::unknown:
        return true;
      case What::folder:  // which the system did not tell when it was listed
        return visitFound(folder, folder.linksFollowed);
      case What::link: {
        struct stat target {};
        if (uninterrupted([&] { return ::stat(path_.c_str(), &target); }) != 0) return true;  // leads nowhere
        if (S_ISDIR(target.st_mode))
          return folder.linksFollowed == kMaximumLinks || visitFound(folder, folder.linksFollowed + 1);
        if (item.size == 0) item.attribute = look_.valueByPath(path_);
        break;
      }
      case What::file:
        break;
    }
    std::optional<std::string_view> attribute;
    if (item.attribute) attribute = *item.attribute;
    const bool goesOn = visit_({path_, item.size, attribute});
    if (!goesOn) end();
    return goesOn;
  }

  bool visitFound(Folder& around, int linksFollowed) {
    const auto found = std::make_unique<Folder>(path_, &around, linksFollowed);  // stacks may be small
    found->isFollowed = linksFollowed > around.linksFollowed;
    addListing(*found);
    return visitFolder(*found);
  }

  // --- Any thread's side: questions to the volume. ---

  [[gnu::noinline]] void list(Folder& folder) {  // else its buffer would be on the stack for each level
    if (folder.path.empty())
      folder.path.append(folder.parent->path).append("/").append(folder.parent->names.data() + folder.nameAt);
    folder.isStarved = false;
    folder.descriptor = FileDescriptor(openFolder(folder));
    if (!folder.descriptor) {
      folder.isNone = errno == ENOTDIR || errno == ELOOP;
      folder.isStarved = errno == EMFILE || errno == ENFILE;
      return;
    }
    if (isBeingWalked(folder)) return;
    alignas(dirent64) std::array<char, kListBuffer> buffer;
    for (;;) {
      const long got = uninterrupted(
          [&] { return ::syscall(SYS_getdents64, folder.descriptor.get(), buffer.data(), buffer.size()); });
      const bool isTooLong = folder.names.size() + folder.folders.size() * sizeof(Folder) > kLongestListing;
      if (got < 0 || isTooLong) forget(folder);
      if (got <= 0 || isTooLong) break;
      for (long at = 0; at < got;) {
        const auto* entry = reinterpret_cast<const dirent64*>(buffer.data() + at);
        at += entry->d_reclen;
        if (isListedName(entry->d_name)) addItem(folder, *entry);
      }
    }
  }

  static int openFolder(const Folder& folder) {
    const Folder* const parent = folder.parent;
    const bool goesByName =
        parent != nullptr && parent->depth < kDeepestKeptOpen && parent->descriptor && !folder.isFollowed;
    const int from = goesByName ? parent->descriptor.get() : AT_FDCWD;
    const char* const path = folder.path.c_str() + (goesByName ? folder.path.rfind('/') + 1 : 0);
    const int flags = kOpenFolder | (folder.isFollowed ? 0 : O_NOFOLLOW);
    return uninterrupted([&] { return ::openat(from, path, flags); });
  }

  /// Only a link can lead to a folder above; without one on the way the same numbers, which not every server
  /// takes care of, are another folder's.
  static bool isBeingWalked(Folder& folder) {
    struct statx status {};
    if (::statx(folder.descriptor.get(), "", AT_EMPTY_PATH | AT_STATX_DONT_SYNC, STATX_INO, &status) != 0)
      return true;
    folder.device = ::makedev(status.stx_dev_major, status.stx_dev_minor);
    folder.inode = status.stx_ino;
    if (folder.linksFollowed == 0 || folder.inode == 0) return false;
    for (const Folder* above = folder.parent; above != nullptr; above = above->parent) {
      if (above->device == folder.device && above->inode == folder.inode) return true;
    }
    return false;
  }

  /// What is not listed to its end is not listed.
  static void forget(Folder& folder) {
    folder.items.clear();
    folder.folders.clear();
  }

  static void addItem(Folder& folder, const dirent64& entry) {
    Item item;
    item.nameAt = static_cast<std::uint32_t>(folder.names.size());
    folder.names.append(entry.d_name, std::strlen(entry.d_name) + 1);
    const std::string_view name(entry.d_name);
    if (entry.d_type == DT_DIR && folder.path.size() + 1 + name.size() < PATH_MAX) {
      folder.folders.push_back(std::make_unique<Folder>(&folder, item.nameAt));
      item.folder = folder.folders.back().get();
    }
    folder.items.push_back(std::move(item));
  }

  void look(Folder& folder, std::size_t begin, std::size_t end) {
    for (std::size_t i = begin; i < end; ++i) {
      Item& item = folder.items[i];
      const char* const name = folder.nameOf(item);
      if (folder.descriptor) {
        look_.lookAt(folder.descriptor.get(), name, item);
      } else {
        look_.lookAt(AT_FDCWD, (folder.path + "/" + name).c_str(), item);
      }
    }
  }

  ItemLook look_;
  const VisitFile& visit_;
  std::string path_;  // of the item that is visited

  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<Step*> lists_;
  std::vector<Step*> looks_;
  const Step* needed_ = nullptr;
  std::vector<Folder*> listedAhead_;  // and their weights:
  std::size_t ahead_ = 0;
  bool isFull_ = false;
  bool isPoor_ = false;  // in descriptors
  std::size_t inProgress_ = 0;
  std::size_t helpers_ = 0;
  std::size_t mostHelpers_ = 0;
  bool finished_ = false;
};

}  // namespace

void walkFiles(const std::string& folder, const std::string& attribute, const VisitFile& visit) {
  const WorkerPool::WaitingScope waiting(WorkerPool::WaitsFor::volume);
  std::make_shared<Walk>(folder, attribute, visit)->run(folder);
}

}  // namespace kmv
