// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string_view>

namespace kmv {

/// The character that begins at `at`, which moves past it. A byte that begins no valid UTF-8 sequence
/// (overlong forms and surrogates are none) is taken alone, as the character of its own number: bytes are
/// never lost. REQUIRES: at < text.size().
char32_t nextCharacter(std::string_view text, std::size_t& at);

}  // namespace kmv
