// SPDX-License-Identifier: MIT
#include <cstdlib>
#include <string>

#include "base/AttributeNumber.h"
#include "base/TextOfBytes.h"
#include "base/UTF8.h"
#include "targets.h"

namespace kmv::fuzz {

void toolOutput(std::string_view input) {
  const std::string_view trimmed = withoutWhiteSpaceAtEnds(input);
  if (withoutWhiteSpaceAtEnds(trimmed) != trimmed) std::abort();
  if (isUTF8(input) && !isUTF8(trimmed)) std::abort();
  const std::int64_t number = integerOfText(input);
  if (integerOfText(" " + std::to_string(number) + "x") != number) std::abort();
  const auto whole = numberInAttribute(input);
  if (whole && integerOfText(input) != *whole) std::abort();
}

}  // namespace kmv::fuzz
