// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/DescriptionKeys.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <exception>
#include <functional>
#include <string>

#include "integration/support/Story.h"
#include "platform/linux/session/Commands.h"
#include "platform/posix/SystemFiles.h"

namespace kmv::integration {

inline constexpr uid_t kNobody = 65534;

/// The volume mounted last at `point`.
inline TargetVolume volumeAt(const std::string& point) {
  TargetVolume volume;
  for (const MountEntry& entry : parseMountInfo(readFile("/proc/self/mountinfo").value_or(""))) {
    if (entry.point != point) continue;
    volume = {point, entry.kind, entry.source.starts_with("/dev/") ? entry.source : "", entry.id,
              entry.device};
  }
  return volume;
}

inline bool isMounted(const std::string& point) {
  return volumeAt(point).mountId != 0;
}

inline std::int64_t statusOf(const Dissent& dissent) {
  return dissent ? dissent->find(key::kDissenterStatus)->integerValue() : dissent::kDone;
}

inline std::int64_t holderIn(const Dissent& dissent) {
  const Value* id = dissent ? dissent->find(key::kDissenterProcessID) : nullptr;
  return id == nullptr ? 0 : id->integerValue();
}

inline Dissent unmountAt(const std::string& point) {
  return unmountVolume({}, volumeAt(point));
}
inline std::int64_t renameAt(const std::string& point, const std::string& name) {
  return statusOf(renameVolume({}, volumeAt(point), name));
}

/// A child that takes hold of something and keeps it until the end of its life.
class Child {
 public:
  explicit Child(const std::function<bool()>& takeHold) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return;
    id_ = fork();
    if (id_ == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      if (!takeHold() || write(ends[1], "y", 1) != 1) _exit(1);
      for (;;) pause();
    }
    close(ends[1]);
    char byte = 0;
    holds_ = read(ends[0], &byte, 1) == 1;
    close(ends[0]);
  }
  ~Child() {
    ::kill(id_, SIGKILL);
    waitpid(id_, nullptr, 0);
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  pid_t id() const { return id_; }
  bool holds() const { return holds_; }

 private:
  pid_t id_ = -1;
  bool holds_ = false;
};

/// What `command` came to in a child without root's rights.
inline std::int64_t asPlainUser(const std::function<std::int64_t()>& command) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return 1;
  const pid_t child = fork();
  if (child == 0) {
    std::int64_t result = 1;
    if (setresgid(kNobody, kNobody, kNobody) == 0 && setresuid(kNobody, kNobody, kNobody) == 0) {
      prctl(PR_SET_DUMPABLE, 1);  // else it may not look into its own /proc
      try {
        result = command();
      } catch (const std::exception& error) {  // the test's own frames are the parent's
        std::fprintf(stderr, "as a plain user: %s\n", error.what());
      }
    }
    _exit(write(ends[1], &result, sizeof result) == sizeof result ? 0 : 1);
  }
  std::int64_t result = 1;
  if (read(ends[0], &result, sizeof result) != sizeof result) result = 1;
  close(ends[0]);
  close(ends[1]);
  waitpid(child, nullptr, 0);
  return result;
}

}  // namespace kmv::integration
