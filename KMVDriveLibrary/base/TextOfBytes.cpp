// SPDX-License-Identifier: MIT
#include "base/TextOfBytes.h"

#include <algorithm>
#include <iterator>
#include <limits>

#include "base/UTF8.h"

namespace kmv {
namespace {

bool isWhiteSpace(char32_t c) {
  constexpr char32_t kSpaces[] = {0x20, 0x85, 0xa0, 0x1680, 0x2028, 0x2029, 0x202f, 0x205f, 0x3000};
  if ((c >= 0x09 && c <= 0x0d) || (c >= 0x2000 && c <= 0x200b)) return true;
  return std::find(std::begin(kSpaces), std::end(kSpaces), c) != std::end(kSpaces);
}

/// Where the last character of a text that is not empty begins.
std::size_t startOfLast(std::string_view text) {
  std::size_t start = text.size() - 1;
  while (start > 0 && isUTF8Continuation(text[start])) --start;
  std::size_t end = start;
  nextCharacter(text, end);
  return end == text.size() ? start : text.size() - 1;
}

}  // namespace

std::string_view withoutWhiteSpaceAtEnds(std::string_view text) {
  while (!text.empty()) {
    std::size_t next = 0;
    if (!isWhiteSpace(nextCharacter(text, next))) break;
    text.remove_prefix(next);
  }
  while (!text.empty()) {
    const std::size_t last = startOfLast(text);
    std::size_t at = last;
    if (!isWhiteSpace(nextCharacter(text, at))) break;
    text = text.substr(0, last);
  }
  return text;
}

std::int64_t integerOfText(std::string_view text) {
  std::size_t at = 0;
  const auto skipSpace = [&] {
    while (at < text.size()) {
      std::size_t next = at;
      if (!isWhiteSpace(nextCharacter(text, next))) return;
      at = next;
    }
  };
  skipSpace();
  const bool isNegative = at < text.size() && text[at] == '-';
  if (at < text.size() && (text[at] == '-' || text[at] == '+')) ++at;
  skipSpace();
  constexpr auto kLargest = std::numeric_limits<std::int64_t>::max();
  std::int64_t number = 0;  // negative, whose range is the larger one
  for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at) {
    const int digit = text[at] - '0';
    if (number < (-kLargest - 1 + digit) / 10) return isNegative ? -kLargest - 1 : kLargest;
    number = number * 10 - digit;
  }
  if (isNegative) return number;
  return number == -kLargest - 1 ? kLargest : -number;
}

}  // namespace kmv
