// SPDX-License-Identifier: MIT
#include "platform/posix/SystemFiles.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>
#include <system_error>

#include "base/Text.h"
#include "platform/posix/FileDescriptor.h"
#include "platform/posix/Retry.h"

namespace kmv {
namespace {

constexpr std::size_t kLongestAttribute = 4096;  // the kernel hands out an attribute as one page

/// Asking again would not help: there is nothing, or nothing for this process.
bool isFinal(int error) {
  constexpr std::array kFinal{ENOENT, ENOTDIR, ENODEV, ENXIO, ESRCH, EACCES, EPERM};
  return std::find(kFinal.begin(), kFinal.end(), error) != kFinal.end();
}

[[noreturn]] void throwNotReadable(const std::string& path, int error) {
  throw NotReadable(path + ": " + std::generic_category().message(error));
}

FileDescriptor openToRead(const std::string& path) {
  FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!file && isShortage(errno)) throwNotReadable(path, errno);
  return file;
}

/// The text of an attribute; none, with the reason in `errno`, when it cannot be read.
std::optional<std::string> tryAttribute(const std::string& path) {
  const FileDescriptor file = openToRead(path);
  if (!file) return std::nullopt;
  std::array<char, kLongestAttribute> buffer;
  const ssize_t count = retryOnEINTR([&] { return ::read(file.get(), buffer.data(), buffer.size()); });
  if (count < 0 && isShortage(errno)) throwNotReadable(path, errno);
  if (count < 0) return std::nullopt;
  return std::string(trimmed({buffer.data(), static_cast<std::size_t>(count)}));
}

}  // namespace

bool isShortage(int error) {
  constexpr std::array kShortages{EMFILE, ENFILE, ENOMEM, ENOBUFS, EAGAIN};
  return std::find(kShortages.begin(), kShortages.end(), error) != kShortages.end();
}

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
  const FileDescriptor file = openToRead(path);
  if (!file) return std::nullopt;
  auto text = readWhole(file.get());
  if (!text && isShortage(errno)) throwNotReadable(path, errno);
  return text;
}

std::string readAttribute(const std::string& path) {
  return tryAttribute(path).value_or(std::string());
}

std::string requireAttribute(const std::string& path) {
  auto text = tryAttribute(path);
  if (!text && !isFinal(errno)) throwNotReadable(path, errno);
  return text ? std::move(*text) : std::string();
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
  if (!folder && !isFinal(errno)) throwNotReadable(path, errno);
  if (!folder) return names;
  errno = 0;
  while (const dirent* entry = ::readdir(folder.get())) {
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") names.emplace_back(name);
    errno = 0;
  }
  if (errno != 0 && !isFinal(errno)) throwNotReadable(path, errno);
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace kmv
