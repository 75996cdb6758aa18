// SPDX-License-Identifier: MIT
#include "base/ByteCountText.h"

#include <array>

namespace kmv {
namespace {

struct Unit {
  const char* name;
  std::uint64_t bytes;
  unsigned decimals;
};

constexpr std::array<Unit, 6> kUnits{{{"KB", 1'000, 0},
                                      {"MB", 1'000'000, 1},
                                      {"GB", 1'000'000'000, 2},
                                      {"TB", 1'000'000'000'000, 2},
                                      {"PB", 1'000'000'000'000'000, 2},
                                      {"EB", 1'000'000'000'000'000'000, 2}}};

/// Rounds half to even.
std::uint64_t rounded(std::uint64_t number, std::uint64_t divisor) {
  const std::uint64_t whole = number / divisor;
  const std::uint64_t rest = number % divisor;
  const std::uint64_t otherHalf = divisor - rest;
  return whole + (rest > otherHalf || (rest == otherHalf && whole % 2 == 1) ? 1 : 0);
}

/// `number` of the unit's smallest decimal, without zeros at the end.
std::string decimalText(std::uint64_t number, unsigned decimals) {
  for (; decimals > 0 && number % 10 == 0; --decimals) number /= 10;
  std::string text = std::to_string(number);
  if (decimals > 0) text.insert(text.size() - decimals, 1, '.');
  return text;
}

}  // namespace

std::string byteCountText(std::int64_t bytes) {
  if (bytes == 0) return "Zero KB";
  const std::string sign = bytes < 0 ? "-" : "";
  const std::uint64_t size =
      bytes < 0 ? ~static_cast<std::uint64_t>(bytes) + 1 : static_cast<std::uint64_t>(bytes);
  if (size == 1) return sign + "1 byte";
  if (size < 1000) return sign + std::to_string(size) + " bytes";
  for (const Unit& unit : kUnits) {
    std::uint64_t steps = 1;
    for (unsigned i = 0; i < unit.decimals; ++i) steps *= 10;
    const std::uint64_t number = rounded(size, unit.bytes / steps);
    // A number that rounds up to 1000 is written in the next unit.
    if (number < 1000 * steps || &unit == &kUnits.back())
      return sign + decimalText(number, unit.decimals) + " " + unit.name;
  }
  return {};  // never reached: the last unit takes everything
}

}  // namespace kmv
