// SPDX-License-Identifier: MIT
// What does reading an attribute cost, by system call beside a bare getxattr, and by a tool beside a bare
// posix_spawn, pipe and wait of the same program; the latter also in a process that has a gigabyte in memory.
// All in one run, in turn, round by round.
#include <KMVDriveLibrary/KMVDriveLibrary.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "platform/Platform.h"

namespace {

constexpr int kRounds = 15;

double median(std::vector<double> values) {
  std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2),
                   values.end());
  return values[values.size() / 2];
}

/// Microseconds of one call each, and how the second compares with the first in the same round.
void compare(const char* title, const std::function<void()>& bare, const std::function<void()>& ours,
             int times) {
  const auto timeOf = [times](const std::function<void()>& work) {
    const auto begin = std::chrono::steady_clock::now();
    for (int i = 0; i < times; ++i) work();
    return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - begin).count() /
           times;
  };
  std::vector<double> first, second, ratios;
  for (int round = 0; round < kRounds; ++round) {
    const bool isSwapped = round % 2 == 1;
    const double a = timeOf(isSwapped ? ours : bare), b = timeOf(isSwapped ? bare : ours);
    first.push_back(isSwapped ? b : a);
    second.push_back(isSwapped ? a : b);
    ratios.push_back(second.back() / first.back());
  }
  std::printf("%-44s bare %9.2f us, library %9.2f us, %.2fx\n", title, median(first), median(second),
              median(ratios));
}

void spawnBare(const char* program) {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) std::exit(1);
  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawn_file_actions_adddup2(&actions, ends[1], 1);
  std::array<char*, 2> arguments{const_cast<char*>(program), nullptr};
  pid_t child = -1;
  if (::posix_spawn(&child, program, &actions, nullptr, arguments.data(), environ) != 0) std::exit(1);
  ::posix_spawn_file_actions_destroy(&actions);
  ::close(ends[1]);
  std::array<char, 4096> buffer;
  while (::read(ends[0], buffer.data(), buffer.size()) > 0) {
  }
  ::close(ends[0]);
  ::waitpid(child, nullptr, 0);
}

}  // namespace

int main() {
  std::string file = "kmv_attributes_XXXXXX";
  const int descriptor = ::mkstemp(file.data());
  if (descriptor < 0 || ::fsetxattr(descriptor, "user.ltfs.startblock", "1234567", 7, 0) != 0) {
    std::puts("needs a working folder that keeps attributes: not measured");
    ::unlink(file.c_str());
    return 0;
  }
  std::array<char, 256> value;
  compare(
      "one attribute", [&] { ::getxattr(file.c_str(), "user.ltfs.startblock", value.data(), value.size()); },
      [&] { KMVExtendedAttributeGatherer::findLocationOfLTFSStartBlockAtLocation(file); }, 20000);

  auto& child = kmv::Platform::current().childProcess();
  const auto bare = [] { spawnBare("/bin/true"); };
  const auto ours = [&] { child.run({"/bin/true", {}, /*collectsErrors=*/false}); };
  compare("a program", bare, ours, 20);
  std::vector<char> large(std::size_t{1} << 30);
  for (std::size_t at = 0; at < large.size(); at += 4096) large[at] = 1;
  compare("a program, with a gigabyte in memory", bare, ours, 20);
  ::unlink(file.c_str());
  return 0;
}
