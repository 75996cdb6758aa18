// SPDX-License-Identifier: MIT
#include "integration/support/FuseServer.h"

#include <sys/mount.h>

#include "support/Testing.h"

namespace kmv::integration {
namespace {

/// The state letter of a process: the first after the name in parentheses.
char stateOf(pid_t process) {
  std::string text;
  std::getline(std::ifstream("/proc/" + std::to_string(process) + "/stat"), text);
  const std::size_t name = text.rfind(')');
  return name == std::string::npos || name + 2 >= text.size() ? '?' : text[name + 2];
}

/// True once the server answers: it then stands for another device than the folder around it.
bool isMounted(const std::string& point) {
  struct stat own {
  }, around{};
  return stat(point.c_str(), &own) == 0 && stat((point + "/..").c_str(), &around) == 0 &&
         own.st_dev != around.st_dev;
}

}  // namespace

FuseServer::FuseServer(std::string point, const std::string& program)
    : FuseServer(point, test::Process::Words{program, point, "--kind=kmvhello"}) {}

FuseServer::FuseServer(std::string point, const test::Process::Words& words)
    : point_(std::move(point)), process_(words) {
  if (!test::eventually([this] { return isMounted(point_); }))
    throw std::runtime_error("no FUSE mount came at " + point_);
}

FuseServer::~FuseServer() {
  end(SIGKILL);
  umount2(point_.c_str(), MNT_DETACH | UMOUNT_NOFOLLOW);
}

void FuseServer::end(int number) {
  process_.signal(number);
  process_.exitCode();
}

void FuseServer::stop() {
  process_.signal(SIGSTOP);
  if (!test::eventually([this] { return stateOf(process_.id()) == 'T'; }))
    throw std::runtime_error("the server runs on");
}

}  // namespace kmv::integration
