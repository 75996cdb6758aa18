// SPDX-License-Identifier: MIT
#include "platform/linux/files/LinuxAttributes.h"

#include <sys/xattr.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>

#include "base/Text.h"
#include "platform/linux/queues/WorkerPool.h"
#include "platform/posix/GrowingValue.h"

namespace kmv {
namespace {

std::optional<std::string> valueOf(const std::string& path, const std::string& name) {
  return growingValue(
      [&](char* value, std::size_t size) { return ::getxattr(path.c_str(), name.c_str(), value, size); });
}

/// The name under which the file has the attribute; the one in the name space when it has neither.
std::string nameForReading(const std::string& path, const std::string& name) {
  std::string first = attributeNameInSpace(name);
  if (first == name || ::getxattr(path.c_str(), first.c_str(), nullptr, 0) >= 0 ||
      !mayBePlainAttribute(errno))
    return first;
  return ::getxattr(path.c_str(), name.c_str(), nullptr, 0) >= 0 ? name : first;
}

}  // namespace

std::string attributeNameInSpace(const std::string& name) {
  constexpr std::array<std::string_view, 4> kNameSpaces{"user.", "trusted.", "security.", "system."};
  const bool hasOne = std::any_of(kNameSpaces.begin(), kNameSpaces.end(),
                                  [&](std::string_view space) { return name.starts_with(space); });
  return hasOne ? name : "user." + name;
}

bool mayBePlainAttribute(int error) {
  return error == ENODATA || error == EOPNOTSUPP;
}

std::optional<std::string> attributeOf(const std::string& path, const std::string& name) {
  const VolumeWait waiting;
  const std::string first = attributeNameInSpace(name);
  auto value = valueOf(path, first);
  if (!value && first != name && mayBePlainAttribute(errno)) value = valueOf(path, name);
  return value;
}

std::optional<std::vector<std::string>> LinuxExtendedAttributes::names(const std::string& path) {
  const VolumeWait waiting;
  const auto list =
      growingValue([&](char* names, std::size_t size) { return ::listxattr(path.c_str(), names, size); });
  if (!list) return std::nullopt;
  std::vector<std::string> names;
  constexpr std::string_view kUser = "user.";
  for (std::string_view rest = *list; !rest.empty();) {
    const std::string_view whole = takeUntil(rest, '\0');
    const std::string plain(whole.starts_with(kUser) ? whole.substr(kUser.size()) : whole);
    names.push_back(attributeNameInSpace(plain) == whole ? plain : std::string(whole));
  }
  return names;
}

bool LinuxExtendedAttributes::set(const std::string& path, const std::string& name,
                                  const std::string& value) {
  const VolumeWait waiting;
  return ::setxattr(path.c_str(), attributeNameInSpace(name).c_str(), value.data(), value.size(), 0) == 0;
}

ChildProcess::Result LinuxExtendedAttributes::runTool(const ToolRun& run) {
  const VolumeWait waiting;
  return tools_.run(
      requestFor(run, run.value ? attributeNameInSpace(run.name) : nameForReading(run.path, run.name)));
}

}  // namespace kmv
