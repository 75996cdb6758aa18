// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace kmv {

/// The value of a hexadecimal digit of either case; -1 for anything else.
constexpr int hexDigitValue(char digit) {
  if (digit >= '0' && digit <= '9') return digit - '0';
  if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
  if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
  return -1;
}

/// The byte of two hexadecimal digits; -1 when one of them is not a digit.
constexpr int hexByteValue(char high, char low) {
  const int upper = hexDigitValue(high), lower = hexDigitValue(low);
  return upper < 0 || lower < 0 ? -1 : upper * 16 + lower;
}

/// Appends a byte as two hexadecimal digits, upper case.
inline void appendHexByte(std::string& text, unsigned char byte) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  text += kDigits[byte >> 4];
  text += kDigits[byte & 15];
}

}  // namespace kmv
