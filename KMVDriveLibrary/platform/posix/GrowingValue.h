// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <optional>
#include <string>

#include "platform/posix/Retry.h"

namespace kmv {

/// The value that `get(buffer, size)` reads: one call where it is short, and no allocation but its own. It
/// can grow between two calls, so the buffer grows until it fits or has reached 2 MiB (a server may say
/// anything). None on failure, with the `errno` of the last call.
template <typename Get>
std::optional<std::string> growingValue(const Get& get) {
  constexpr std::size_t kUsual = 512, kLargest = std::size_t{1} << 21;
  std::array<char, kUsual> usual;
  ssize_t size = retryOnEINTR([&] { return get(usual.data(), usual.size()); });
  if (size >= 0) return std::string(usual.data(), static_cast<std::size_t>(size));
  for (std::size_t room = kUsual * 4; errno == ERANGE && room <= kLargest; room *= 4) {
    std::string value(room, '\0');
    size = retryOnEINTR([&] { return get(value.data(), value.size()); });
    if (size < 0) continue;
    value.resize(static_cast<std::size_t>(size));
    return value;
  }
  return std::nullopt;
}

}  // namespace kmv
