// SPDX-License-Identifier: MIT
// A FUSE file system with one file and one folder. Ends with the process that started it.
#define FUSE_USE_VERSION 31
#include <fuse.h>
#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>

namespace {

constexpr std::string_view kFile = "/hello";
constexpr std::string_view kFolder = "/folder";
constexpr std::string_view kText = "hello\n";

int getAttributes(const char* path, struct stat* status, fuse_file_info*) {
  *status = {};
  status->st_uid = getuid();
  status->st_gid = getgid();
  if (path == kFile) {
    status->st_mode = S_IFREG | 0444;
    status->st_nlink = 1;
    status->st_size = static_cast<off_t>(kText.size());
    return 0;
  }
  status->st_mode = S_IFDIR | 0755;
  status->st_nlink = 2;
  return path == std::string_view("/") || path == kFolder ? 0 : -ENOENT;
}

int readFolder(const char* path, void* buffer, fuse_fill_dir_t fill, off_t, fuse_file_info*,
               fuse_readdir_flags) {
  constexpr auto plain = static_cast<fuse_fill_dir_flags>(0);
  fill(buffer, ".", nullptr, 0, plain);
  fill(buffer, "..", nullptr, 0, plain);
  if (path == kFolder) return 0;
  fill(buffer, kFile.data() + 1, nullptr, 0, plain);
  fill(buffer, kFolder.data() + 1, nullptr, 0, plain);
  return 0;
}

int readFile(const char*, char* buffer, size_t size, off_t offset, fuse_file_info*) {
  const auto from = std::min(static_cast<std::size_t>(offset), kText.size());
  const std::string_view part = kText.substr(from, size);
  std::memcpy(buffer, part.data(), part.size());
  return static_cast<int>(part.size());
}

}  // namespace

int main(int argc, char** argv) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  fuse_operations operations{};
  operations.getattr = getAttributes;
  operations.readdir = readFolder;
  operations.read = readFile;
  return fuse_main(argc, argv, &operations, nullptr);
}
