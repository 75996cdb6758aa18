// SPDX-License-Identifier: MIT
// Every way of watching the mount table over the same mounts: what it says must be what a fresh read of the table says.
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include "integration/support/Story.h"
#include "platform/linux/mounts/FanotifyWatcher.h"
#include "platform/linux/mounts/ListmountWatcher.h"
#include "platform/linux/mounts/MountInfoWatcher.h"
#include "platform/linux/mounts/MountTable.h"
#include "platform/posix/SystemFiles.h"
#include "support/Testing.h"

namespace kmv::integration {
namespace {

using Lines = std::vector<std::string>;

Lines linesOf(const MountTree& tree, bool drivesOnly) {
  Lines lines;
  tree.forEach([&](const MountEntry& entry, std::string_view rule) {
    if (drivesOnly && !rule.empty()) return;
    lines.push_back(std::string(rule) + " " + entry.point + " " + entry.kind + " " + entry.root + " " +
                    entry.source + " " + toString(entry.device) + " " + std::to_string(entry.reusedId));
  });
  return lines;
}

Lines truth(bool drivesOnly) {
  MountTree tree([](const MountEntry&, bool) { return true; });
  tree.apply({{}, parseMountInfo(readFile("/proc/self/mountinfo").value_or(""))});
  return linesOf(tree, drivesOnly);
}

/// Mounts, and whatever else becomes of mounts, at a few places of the scratch folder.
class Mutator {
 public:
  Mutator(const Namespace& space, unsigned seed) : space_(space), random_(seed) {
    for (const char* name : kPlaces) space_.folder(name);
  }

  /// True when what it did is reported to nobody.
  bool doSomething() {
    const std::string place = anyPlace(), other = anyPlace();
    switch (random_() % 9) {
      case 0:
      case 1:
        mountDrive(place);
        return false;
      case 2:
        if (::mount("memory", place.c_str(), "tmpfs", 0, "") == 0) ::mkdir((place + "/inner").c_str(), 0755);
        return false;
      case 3:
        ::mount(place.c_str(), other.c_str(), nullptr, MS_BIND | (random_() % 2 == 0 ? MS_REC : 0), nullptr);
        return false;
      case 4:
        ::mount(place.c_str(), other.c_str(), nullptr, MS_MOVE, nullptr);
        return false;
      case 5:
      case 6:
        ::umount2(place.c_str(), MNT_DETACH);
        return false;
      case 7:
        mountBeneath(place);
        return false;
      default:
        return rename();
    }
  }

  /// A file system that no server answers for any more is a drive like every other.
  static void mountDrive(const std::string& place) {
    const int server = ::open("/dev/fuse", O_RDWR | O_CLOEXEC);
    const std::string options = "fd=" + std::to_string(server) + ",rootmode=40000,user_id=0,group_id=0";
    ::mount("drive", place.c_str(), "fuse.kmvtest", 0, options.c_str());
    ::close(server);
  }

 private:
  static constexpr const char* kPlaces[] = {"a", "b", "c", "up", "up/d"};

  std::string anyPlace() {
    static const char* const kAll[] = {"a", "a/inner", "b", "b/inner", "c", "up/d", "moved/d", "up"};
    return space_.path(kAll[random_() % std::size(kAll)]);
  }
  static void mountBeneath(const std::string& place) {
    constexpr unsigned kBeneath = 0x200, kFromDescriptor = 0x4;
    const int source = static_cast<int>(::syscall(SYS_fsopen, "tmpfs", 0));
    ::syscall(SYS_fsconfig, source, 6 /* create */, nullptr, nullptr, 0);
    const int mount = static_cast<int>(::syscall(SYS_fsmount, source, 0, 0));
    ::syscall(SYS_move_mount, mount, "", AT_FDCWD, place.c_str(), kFromDescriptor | kBeneath);
    ::close(mount);
    ::close(source);
  }
  bool rename() const {
    const std::string up = space_.path("up"), moved = space_.path("moved");
    return std::rename(up.c_str(), moved.c_str()) == 0 || std::rename(moved.c_str(), up.c_str()) == 0;
  }

  const Namespace& space_;
  std::mt19937 random_;
};

class Watchers : public Story, public ::testing::WithParamInterface<const char*> {
 protected:
  void SetUp() override {
    std::string missing = missingForNamespaces();
    if (missing.empty()) missing = missingForFuse();
    begin(missing);
    if (IsSkipped()) return;
    const auto kernel = KernelMounts::open();
    watcher_ = make(GetParam(), kernel);
    if (watcher_ == nullptr) GTEST_SKIP() << "needs a kernel that knows " << GetParam();
    EXPECT_EQ(watcher_->name(), GetParam());
  }
  static std::unique_ptr<MountTableWatcher> make(const std::string& name,
                                                 const std::optional<KernelMounts>& kernel) {
    const LinuxOptions options;
    if (name == "mountinfo") return std::make_unique<MountInfoWatcher>(options);
    if (!kernel) return nullptr;
    if (name == "listmount") return std::make_unique<ListmountWatcher>(options, *kernel);
    return FanotifyWatcher::make(options, *kernel);
  }
  std::unique_ptr<MountTableWatcher> watcher_;
};

TEST_P(Watchers, SayWhatAFreshReadSays) {
  // By reports that name nothing, only drives are followed, and a report for each change is needed for all of them.
  const bool drivesOnly = GetParam() == std::string("listmount");
  for (unsigned seed = 1; seed <= 30 && !HasFailure(); ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    ::umount2(space().scratch().c_str(), MNT_DETACH);
    mountVolume("scratch", space().scratch(), "tmpfs");
    Mutator mutator(space(), seed);
    MountTable table(make(GetParam(), KernelMounts::open()), [](const MountEntry&, bool) { return true; });
    for (int step = 0; step < 60 && !HasFailure(); ++step) {
      SCOPED_TRACE("step " + std::to_string(step));
      bool anew = false;
      for (unsigned i = 0; i <= (drivesOnly ? 0 : seed % 3); ++i) anew = mutator.doSomething() || anew;
      Lines lines;
      const auto reader = [&](const MountTree& tree) { lines = linesOf(tree, drivesOnly); };
      EXPECT_TRUE(anew ? table.readAnew(reader) : table.read(reader));
      EXPECT_EQ(lines, truth(drivesOnly));
    }
    Lines lines;
    table.readAnew([&](const MountTree& tree) { lines = linesOf(tree, false); });
    EXPECT_EQ(lines, truth(false));
  }
}

/// From now on the kernel does not know the two calls, as in a sandbox.
void refuseKernelCalls() {
  sock_filter filter[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 457, 1, 0),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 458, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOSYS),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  const sock_fprog program{static_cast<unsigned short>(std::size(filter)), filter};
  ASSERT_EQ(prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0), 0);
  ASSERT_EQ(prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program), 0);
}

std::string pointsOf(const MountDeltas& deltas) {
  std::string points;
  for (const auto& delta : deltas) {
    for (const MountEntry& entry : delta->detached) points += "-" + entry.point;
    for (const MountEntry& entry : delta->attached) points += "+" + entry.point;
  }
  return points;
}

TEST_P(Watchers, GoOnWhereASandboxBegins) {
  const std::string one = space().folder("one"), two = space().folder("two"), three = space().folder("three");
  mountVolume("memory", one, "tmpfs");
  const auto table =
      std::make_shared<MountTable>(std::move(watcher_), [](const MountEntry&, bool) { return true; });
  MountFollower follower(table);
  mountVolume("memory", two, "tmpfs");
  EXPECT_NE(pointsOf(follower.take()).find("+" + two), std::string::npos);
  refuseKernelCalls();
  unmount(one);
  EXPECT_EQ(pointsOf(follower.take()), "-" + one) << "and nothing that was told is told again";
  mountVolume("memory", three, "tmpfs");
  moveMount(two, one);
  EXPECT_EQ(pointsOf(follower.take()), "-" + two + "+" + one + "+" + three);
  table->read([&](const MountTree& tree) { EXPECT_EQ(linesOf(tree, false), truth(false)); });
}

TEST_F(Story, FanotifyTellsEachMountOfABurstAndWhatIsThereAfterTooMany) {
  begin(missingForNamespaces());
  if (IsSkipped()) return;
  const auto kernel = KernelMounts::open();
  const auto watcher = kernel ? FanotifyWatcher::make({}, *kernel) : nullptr;
  if (watcher == nullptr) GTEST_SKIP() << "needs Linux 6.14";
  const std::string point = space().folder("point");
  watcher->refresh(false);
  constexpr int kTold = 300, kTooMany = 9000;  // two records each; the kernel keeps 16,384
  std::size_t told = 0;
  for (int i = 0; i < kTold; ++i) {
    mountVolume("memory", point, "tmpfs");
    told += watcher->refresh(false)->size();
    unmount(point);
  }
  told += watcher->refresh(false)->size();
  EXPECT_EQ(told, 2u * kTold);
  EXPECT_EQ(watcher->missed(), 0u);
  const auto probe = watcher->makeProbe();
  EXPECT_TRUE(probe->hasChanged());
  EXPECT_FALSE(probe->hasChanged());
  for (int i = 0; i < kTooMany; ++i) {
    mountVolume("memory", point, "tmpfs");
    unmount(point);
  }
  mountVolume("memory", point, "tmpfs");
  EXPECT_TRUE(probe->hasChanged());
  const auto changes = watcher->refresh(false);
  ASSERT_EQ(changes->size(), 1u);
  EXPECT_EQ(changes->front().attached.at(0).point, point);
  EXPECT_GT(watcher->missed(), 8000u);
  EXPECT_TRUE(probe->hasChanged()) << "another took the records";
  EXPECT_FALSE(probe->hasChanged());
}

/// The system calls of a child between each pair of its `getppid`, but for those that get memory.
std::vector<int> systemCallsOf(const std::function<void()>& story) {
  const pid_t child = ::fork();
  if (child == 0) {
    ::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
    ::raise(SIGSTOP);
    story();
    std::_Exit(0);
  }
  std::vector<int> counts;
  bool isCounted = false;
  int status = 0;
  ::waitpid(child, &status, 0);
  ::ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
  while (::ptrace(PTRACE_SYSCALL, child, nullptr, nullptr) == 0 && ::waitpid(child, &status, 0) == child &&
         WIFSTOPPED(status)) {
    __ptrace_syscall_info call{};
    ::ptrace(PTRACE_GET_SYSCALL_INFO, child, sizeof call, &call);
    if (call.op != PTRACE_SYSCALL_INFO_ENTRY) continue;
    const auto number = static_cast<long>(call.entry.nr);
    if (number == SYS_getppid) {
      isCounted = !isCounted;
      if (isCounted) counts.push_back(0);
    } else if (isCounted && number != SYS_brk && number != SYS_mmap && number != SYS_munmap) {
      ++counts.back();
    }
  }
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  return counts;
}

/// Without the one that reads the whole table.
class AskingWatchers : public Watchers {};

TEST_P(AskingWatchers, AskAboutWhatAnEventIsAboutAtAnyNumberOfMounts) {
  constexpr int kDrives = 20, kMounts = 1000, kEvents = 6;
  for (int i = 0; i < kDrives; ++i) Mutator::mountDrive(space().folder("drive" + std::to_string(i)));
  for (int i = 0; i < kMounts; ++i) mountVolume("memory", space().folder("m" + std::to_string(i)), "tmpfs");
  const std::string place = space().folder("place");
  const auto counts = systemCallsOf([&] {
    MountTable table(std::move(watcher_), [](const MountEntry&, bool) { return true; });
    const auto read = [&] { table.read([](const MountTree&) {}); };
    const auto countRead = [&] {
      ::syscall(SYS_getppid);
      read();
      ::syscall(SYS_getppid);
    };
    read();
    for (int event = 0; event < kEvents; ++event) {
      Mutator::mountDrive(place);
      countRead();
      ::umount2(place.c_str(), MNT_DETACH);
      countRead();
    }
  });
  // The machine has drives of its own, and one comes and goes.
  const int drives = static_cast<int>(truth(/*drivesOnly=*/true).size()) + 1;
  const int most = GetParam() == std::string("fanotify") ? 4 : 3 + drives;
  ASSERT_EQ(counts.size(), 2u * kEvents);
  for (const int count : counts) {
    EXPECT_GT(count, 0);
    EXPECT_LE(count, most);
  }
}

INSTANTIATE_TEST_SUITE_P(, Watchers, ::testing::Values("fanotify", "listmount", "mountinfo"),
                         [](const auto& story) { return std::string(story.param); });
INSTANTIATE_TEST_SUITE_P(, AskingWatchers, ::testing::Values("fanotify", "listmount"),
                         [](const auto& story) { return std::string(story.param); });

}  // namespace
}  // namespace kmv::integration
