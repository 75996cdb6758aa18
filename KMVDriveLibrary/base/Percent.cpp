// SPDX-License-Identifier: MIT
#include "base/Percent.h"

#include <array>

#include "base/Hex.h"

namespace kmv {
namespace {

constexpr std::array<bool, 256> unescapedPathBytes() {
  std::array<bool, 256> plain{};
  for (const char c :
       std::string_view("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~!$&'()*+,=:@/")) {
    plain[static_cast<unsigned char>(c)] = true;
  }
  return plain;
}

constexpr auto kUnescaped = unescapedPathBytes();

}  // namespace

std::string percentEncodedPath(std::string_view path) {
  std::string text;
  text.reserve(path.size());
  for (const char c : path) {
    const auto byte = static_cast<unsigned char>(c);
    if (kUnescaped[byte]) {
      text += c;
    } else {
      text += '%';
      appendHexByte(text, byte);
    }
  }
  return text;
}

bool isCanonicalFilePath(std::string_view encodedPath) {
  if (encodedPath.empty() || encodedPath.front() != '/') return false;
  for (std::size_t i = 0; i < encodedPath.size(); ++i) {
    const char c = encodedPath[i];
    if (c == '%') {
      // Only bytes that must be escaped are, with upper-case digits.
      if (i + 2 >= encodedPath.size()) return false;
      const std::string_view escape = encodedPath.substr(i, 3);
      if (percentEncodedPath(percentDecoded(escape)) != escape) return false;
      i += 2;
    } else if (!kUnescaped[static_cast<unsigned char>(c)]) {
      return false;
    } else if (c == '/') {
      // The component after it is not empty, "." or "..".
      const std::string_view rest = encodedPath.substr(i + 1);
      if (rest.starts_with('/') || rest == "." || rest == ".." || rest.starts_with("./") ||
          rest.starts_with("../"))
        return false;
    }
  }
  return true;
}

std::string percentDecoded(std::string_view text) {
  if (text.find('%') == std::string_view::npos) return std::string(text);
  std::string bytes;
  bytes.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%' && i + 2 < text.size()) {
      const int byte = hexByteValue(text[i + 1], text[i + 2]);
      if (byte >= 0) {
        bytes += static_cast<char>(byte);
        i += 2;
        continue;
      }
    }
    bytes += text[i];
  }
  return bytes;
}

}  // namespace kmv
