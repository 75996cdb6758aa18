// SPDX-License-Identifier: MIT
#include "platform/macos/MacAttributes.h"

#include <sys/xattr.h>

#include "platform/posix/GrowingValue.h"
#include "platform/posix/Retry.h"

namespace kmv::macos {

std::optional<std::string> attributeOf(const std::string& path, const std::string& name, int options) {
  return growingValue([&](char* value, std::size_t size) {
    return ::getxattr(path.c_str(), name.c_str(), value, size, /*position=*/0, options);
  });
}

bool MacExtendedAttributes::set(const std::string& path, const std::string& name, const std::string& value) {
  return retryOnEINTR([&] {
           return ::setxattr(path.c_str(), name.c_str(), value.data(), value.size(), /*position=*/0,
                             /*options=*/0);
         }) == 0;
}

}  // namespace kmv::macos
