// SPDX-License-Identifier: MIT
#include "platform/posix/SystemFiles.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <memory>

#include "base/Text.h"
#include "platform/posix/FileDescriptor.h"
#include "platform/posix/Retry.h"

namespace kmv {
namespace {

constexpr std::size_t kLongestAttribute = 4096;  // the kernel hands out an attribute as one page

}  // namespace

std::optional<std::string> readWhole(int fd) {
  if (::lseek(fd, 0, SEEK_SET) < 0) return std::nullopt;
  std::string text;
  std::array<char, 16384> buffer;
  for (;;) {
    const ssize_t count = retryOnEINTR([&] { return ::read(fd, buffer.data(), buffer.size()); });
    if (count < 0) return std::nullopt;
    if (count == 0) return text;
    text.append(buffer.data(), static_cast<std::size_t>(count));
  }
}

std::optional<std::string> readFile(const std::string& path) {
  const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!file) return std::nullopt;
  return readWhole(file.get());
}

std::string readAttribute(const std::string& path) {
  const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!file) return {};
  std::array<char, kLongestAttribute> buffer;
  const ssize_t count = ::read(file.get(), buffer.data(), buffer.size());
  return count > 0 ? std::string(trimmed({buffer.data(), static_cast<std::size_t>(count)})) : std::string();
}

std::uint64_t readNumber(const std::string& path) {
  return parseNumber(readAttribute(path)).value_or(0);
}

std::string readLink(const std::string& path) {
  std::array<char, 4096> buffer;
  const ssize_t count = ::readlink(path.c_str(), buffer.data(), buffer.size());
  return count > 0 ? std::string(buffer.data(), static_cast<std::size_t>(count)) : std::string();
}

std::string joinLink(std::string_view folder, std::string_view target) {
  std::string path(target.starts_with('/') ? std::string_view() : folder);
  while (!target.empty()) {
    const std::size_t slash = target.find('/');
    const std::string_view part = target.substr(0, slash);
    target = slash == std::string_view::npos ? std::string_view() : target.substr(slash + 1);
    if (part.empty() || part == ".") continue;
    if (part == "..") {
      path.resize(path.rfind('/') == std::string::npos ? 0 : path.rfind('/'));
    } else {
      path.append("/").append(part);
    }
  }
  return path;
}

std::vector<std::string> listFolder(const std::string& path) {
  std::vector<std::string> names;
  const std::unique_ptr<DIR, int (*)(DIR*)> folder(::opendir(path.c_str()), ::closedir);
  if (!folder) return names;
  while (const dirent* entry = ::readdir(folder.get())) {
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") names.emplace_back(name);
  }
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace kmv
