// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace kmv {

/// The character that begins at `at`, which moves past it.
/// A byte that begins no valid UTF-8 sequence (overlong forms and surrogates are invalid) is taken alone, as
/// the character of its own number, so no byte is lost.
/// REQUIRES: at < text.size().
char32_t nextCharacter(std::string_view text, std::size_t& at);

/// True when the bytes are valid UTF-8.
bool isUTF8(std::string_view bytes);

/// Appends a character.
/// REQUIRES: one of Unicode, no surrogate.
void appendUTF8(std::string& text, char32_t character);

/// True for a byte inside a sequence, of which none begins a character.
constexpr bool isUTF8Continuation(char byte) {
  return (static_cast<unsigned char>(byte) & 0xc0U) == 0x80;
}

}  // namespace kmv
