// SPDX-License-Identifier: MIT
#include "base/UTF8.h"

namespace kmv {
namespace {

struct Lead {
  std::size_t length;
  char32_t bits;
  char32_t smallest;  // what a sequence of this length must reach at least
};

Lead leadOf(unsigned char byte) {
  if (byte < 0x80) return {1, byte, 0};
  if ((byte & 0xe0) == 0xc0) return {2, byte & 0x1fU, 0x80};
  if ((byte & 0xf0) == 0xe0) return {3, byte & 0x0fU, 0x800};
  if ((byte & 0xf8) == 0xf0) return {4, byte & 0x07U, 0x10000};
  return {1, byte, 0};
}

}  // namespace

char32_t nextCharacter(std::string_view text, std::size_t& at) {
  const auto first = static_cast<unsigned char>(text[at]);
  const Lead lead = leadOf(first);
  char32_t character = lead.bits;
  bool valid = at + lead.length <= text.size();
  for (std::size_t i = 1; valid && i < lead.length; ++i) {
    valid = isUTF8Continuation(text[at + i]);
    character = (character << 6) | (static_cast<unsigned char>(text[at + i]) & 0x3fU);
  }
  valid = valid && character >= lead.smallest && character <= 0x10ffff &&
          (character < 0xd800 || character > 0xdfff);
  at += valid ? lead.length : 1;
  return valid ? character : first;
}

void appendUTF8(std::string& text, char32_t character) {
  const auto add = [&text](char32_t byte) { text += static_cast<char>(static_cast<unsigned char>(byte)); };
  if (character < 0x80) return add(character);
  if (character < 0x800) {
    add(0xc0U | character >> 6);
  } else {
    if (character < 0x10000) {
      add(0xe0U | character >> 12);
    } else {
      add(0xf0U | character >> 18);
      add(0x80U | (character >> 12 & 0x3fU));
    }
    add(0x80U | (character >> 6 & 0x3fU));
  }
  add(0x80U | (character & 0x3fU));
}

bool isUTF8(std::string_view bytes) {
  for (std::size_t at = 0; at < bytes.size();) {
    const std::size_t start = at;
    const char32_t character = nextCharacter(bytes, at);
    if (at == start + 1 && character >= 0x80) return false;
  }
  return true;
}

}  // namespace kmv
