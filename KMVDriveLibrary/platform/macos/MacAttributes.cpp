// SPDX-License-Identifier: MIT
#include "platform/macos/MacAttributes.h"

#include <sys/xattr.h>

#include <string_view>

#include "base/Text.h"
#include "platform/posix/GrowingValue.h"
#include "platform/posix/Retry.h"

namespace kmv::macos {

std::optional<std::string> attributeOf(const std::string& path, const std::string& name, int options) {
  return growingValue([&](char* value, std::size_t size) {
    return ::getxattr(path.c_str(), name.c_str(), value, size, /*position=*/0, options);
  });
}

std::optional<std::vector<std::string>> MacExtendedAttributes::names(const std::string& path) {
  const auto list = growingValue(
      [&](char* names, std::size_t size) { return ::listxattr(path.c_str(), names, size, /*options=*/0); });
  if (!list) return std::nullopt;
  std::vector<std::string> names;
  for (std::string_view rest = *list; !rest.empty();) names.emplace_back(takeUntil(rest, '\0'));
  return names;
}

bool MacExtendedAttributes::set(const std::string& path, const std::string& name, const std::string& value) {
  return retryOnEINTR([&] {
           return ::setxattr(path.c_str(), name.c_str(), value.data(), value.size(), /*position=*/0,
                             /*options=*/0);
         }) == 0;
}

}  // namespace kmv::macos
