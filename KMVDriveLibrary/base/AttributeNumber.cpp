// SPDX-License-Identifier: MIT
#include "base/AttributeNumber.h"

#include <charconv>

#include "base/TextOfBytes.h"

namespace kmv {

std::optional<std::int64_t> numberInAttribute(std::string_view value) {
  while (value.ends_with('\0')) value.remove_suffix(1);
  value = withoutWhiteSpaceAtEnds(value);
  if (value.starts_with('+')) {
    value.remove_prefix(1);
    if (value.starts_with('-')) return std::nullopt;
  }
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), number);
  if (error != std::errc() || end != value.data() + value.size()) return std::nullopt;
  return number;
}

}  // namespace kmv
