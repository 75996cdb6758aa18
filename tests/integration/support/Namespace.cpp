// SPDX-License-Identifier: MIT
#include "integration/support/Namespace.h"

#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>

#include "support/Testing.h"

namespace kmv::integration {
namespace {

constexpr uid_t kNobody = 65534;

void check(bool succeeded, const std::string& what) {
  if (!succeeded) throw std::system_error(errno, std::generic_category(), what);
}

void writeFile(const char* path, const std::string& text) {
  std::ofstream file(path);
  file << text << std::flush;
  check(static_cast<bool>(file), path);
}

/// A folder that is there already and holds nothing that the tests use: whatever becomes of a test, nothing
/// is left of it.
std::string folderToCover() {
  const std::string program = std::filesystem::read_symlink("/proc/self/exe").string();
  for (const std::string folder : {"/srv", "/media", "/mnt"}) {
    if (std::filesystem::is_directory(folder) && !program.starts_with(folder + "/")) return folder;
  }
  throw std::runtime_error("there is no folder to mount the scratch folder on");
}

void makeOwnMountNamespace() {
  check(unshare(CLONE_NEWNS) == 0, "unshare(CLONE_NEWNS)");
  check(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0, "making all mounts private");
}

void becomePlainUser() {
  if (geteuid() == 0) {
    makeOwnMountNamespace();
    openFuseToEveryone();
    check(setresgid(kNobody, kNobody, kNobody) == 0 && setresuid(kNobody, kNobody, kNobody) == 0,
          "setresuid");
    check(prctl(PR_SET_DUMPABLE, 1) == 0, "prctl");  // else the maps below belong to root
  }
  const std::string user = std::to_string(geteuid());
  const std::string group = std::to_string(getegid());
  check(unshare(CLONE_NEWUSER) == 0, "unshare(CLONE_NEWUSER)");
  writeFile("/proc/self/setgroups", "deny");
  writeFile("/proc/self/uid_map", "0 " + user + " 1");
  writeFile("/proc/self/gid_map", "0 " + group + " 1");
}

/// Tries it in a child, since there is no way back.
bool canUnshare(int flags) {
  const pid_t child = fork();
  if (child == 0) _exit(unshare(flags) == 0 ? 0 : 1);
  int status = 1;
  return child > 0 && waitpid(child, &status, 0) == child && status == 0;
}

}  // namespace

/// Puts a node of our own over /dev/fuse, in this namespace only: many machines keep theirs to root.
void openFuseToEveryone() {
  struct stat status {};
  check(stat("/dev/fuse", &status) == 0, "/dev/fuse");
  const std::string folder = folderToCover();
  mountVolume("node", folder, "tmpfs");
  const std::string node = folder + "/fuse";
  const bool made = mknod(node.c_str(), S_IFCHR, status.st_rdev) == 0 && chmod(node.c_str(), 0666) == 0;
  if (made) bindMount(node, "/dev/fuse");
  unmount(folder, MNT_DETACH);
  check(made, "mknod " + node);
}

std::string missingForNamespaces() {
  if (geteuid() != 0) return "needs root, to make a mount namespace of its own";
  return canUnshare(CLONE_NEWNS) ? "" : "needs the right to make a mount namespace of its own";
}

std::string missingForUserNamespaces() {
  return canUnshare(CLONE_NEWUSER | CLONE_NEWNS) ? "" : "needs the right to make a user namespace of its own";
}

std::string missingForLoopDevices() {
  if (std::string why = missingForNamespaces(); !why.empty()) return why;
  return access("/dev/loop-control", R_OK | W_OK) == 0
             ? ""
             : "needs loop devices: /dev/loop-control cannot be used";
}

std::string missingForFuse() {
  return access("/dev/fuse", R_OK | W_OK) == 0 ? "" : "needs FUSE: /dev/fuse cannot be used";
}

Namespace::Namespace(As who) {
  if (who == As::plainUser) becomePlainUser();
  makeOwnMountNamespace();
  scratch_ = folderToCover();
  mountVolume("scratch", scratch_, "tmpfs", "mode=755");
}

Namespace::~Namespace() {
  umount2(scratch_.c_str(), MNT_DETACH | UMOUNT_NOFOLLOW);  // with everything below
}

std::string Namespace::folder(const std::string& name) const {
  const std::string whole = path(name);
  check(mkdir(whole.c_str(), 0755) == 0, whole);
  return whole;
}

void mountVolume(const std::string& source, const std::string& point, const std::string& kind,
                 const std::string& options, unsigned long flags) {
  check(mount(source.c_str(), point.c_str(), kind.c_str(), flags, options.c_str()) == 0,
        "mounting " + source + " at " + point);
}

void bindMount(const std::string& source, const std::string& point) {
  check(mount(source.c_str(), point.c_str(), nullptr, MS_BIND, nullptr) == 0,
        "binding " + source + " to " + point);
}

void moveMount(const std::string& point, const std::string& newPoint) {
  check(mount(point.c_str(), newPoint.c_str(), nullptr, MS_MOVE, nullptr) == 0,
        "moving " + point + " to " + newPoint);
}

void remountReadOnly(const std::string& point) {
  check(mount(nullptr, point.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) == 0, "remounting " + point);
}

void unmount(const std::string& point, int flags) {
  check(umount2(point.c_str(), flags | UMOUNT_NOFOLLOW) == 0, "unmounting " + point);
}

}  // namespace kmv::integration
