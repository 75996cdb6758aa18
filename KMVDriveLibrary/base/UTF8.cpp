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
    const auto byte = static_cast<unsigned char>(text[at + i]);
    valid = (byte & 0xc0) == 0x80;
    character = (character << 6) | (byte & 0x3fU);
  }
  valid = valid && character >= lead.smallest && character <= 0x10ffff &&
          (character < 0xd800 || character > 0xdfff);
  at += valid ? lead.length : 1;
  return valid ? character : first;
}

}  // namespace kmv
