// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/UUID.h>

#include "base/Hex.h"

namespace kmv {
namespace {

bool isDashPosition(std::size_t position) {
  return position == 8 || position == 13 || position == 18 || position == 23;
}

}  // namespace

std::optional<UUID> UUID::fromString(std::string_view text) {
  if (text.size() != 36) return std::nullopt;
  Bytes bytes{};
  std::size_t digits = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (isDashPosition(i)) {
      if (text[i] != '-') return std::nullopt;
      continue;
    }
    const int value = hexDigitValue(text[i]);
    if (value < 0) return std::nullopt;
    bytes[digits / 2] = static_cast<std::uint8_t>(bytes[digits / 2] * 16 + value);
    ++digits;
  }
  return UUID(bytes);
}

std::string UUID::string() const {
  std::string text;
  text.reserve(36);
  for (const std::uint8_t byte : bytes_) {
    if (isDashPosition(text.size())) text += '-';
    appendHexByte(text, byte);
  }
  return text;
}

}  // namespace kmv
