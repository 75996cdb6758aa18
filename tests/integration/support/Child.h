// SPDX-License-Identifier: MIT
#pragma once

#include <sys/prctl.h>

#include "support/Testing.h"

namespace kmv::integration {

inline constexpr uid_t kNobody = 65534;

/// A forked copy of this process that does something and keeps what it took hold of until the end of its lifetime.
class Child {
 public:
  using Work = std::function<std::int64_t()>;
  enum class As { itself, plainUser };

  explicit Child(const Work& work, As who = As::itself) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return;
    id_ = fork();
    if (id_ == 0) live(work, who, ends[1]);
    close(ends[1]);
    answer_ = ends[0];
  }
  ~Child() {
    kill(id_, SIGKILL);
    waitpid(id_, nullptr, 0);
    close(answer_);
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  pid_t id() const { return id_; }
  bool isDone() const {
    pollfd request{answer_, POLLIN, 0};
    return poll(&request, 1, 0) > 0;
  }
  /// What the work came to; waits for it. None when it threw.
  std::optional<std::int64_t> result() {
    std::int64_t value = 0;
    if (!result_ && read(answer_, &value, sizeof value) == sizeof value) result_ = value;
    return result_;
  }
  bool holds() { return result() == true; }

 private:
  [[noreturn]] static void live(const Work& work, As who, int answer) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (who == As::plainUser) {
      if (setresgid(kNobody, kNobody, kNobody) != 0 || setresuid(kNobody, kNobody, kNobody) != 0) _exit(1);
      prctl(PR_SET_DUMPABLE, 1);  // else it may not look into its own /proc
    }
    try {
      const std::int64_t value = work();
      if (write(answer, &value, sizeof value) != sizeof value) _exit(1);
    } catch (const std::exception& error) {  // the test's own frames are the parent's
      std::fprintf(stderr, "in a child: %s\n", error.what());
      _exit(1);
    }
    for (;;) pause();
  }

  pid_t id_ = -1;
  int answer_ = -1;
  std::optional<std::int64_t> result_;
};

}  // namespace kmv::integration
