// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>

#include "base/ByteCountText.h"
#include "targets.h"

namespace kmv::fuzz {

void byteCount(std::string_view input) {
  std::int64_t bytes = 0;
  std::memcpy(&bytes, input.data(), std::min(input.size(), sizeof bytes));
  const std::string text = byteCountText(bytes);
  if (text == "Zero KB") {
    if (bytes != 0) std::abort();
    return;
  }
  char* end = nullptr;
  const long double number = std::strtold(text.c_str(), &end);
  static const std::map<std::string, std::pair<long double, long double>> kUnits{
      {" byte", {1, 0}},     {" bytes", {1, 0}},     {" KB", {1e3L, 500}},    {" MB", {1e6L, 5e4L}},
      {" GB", {1e9L, 5e6L}}, {" TB", {1e12L, 5e9L}}, {" PB", {1e15L, 5e12L}}, {" EB", {1e18L, 5e15L}}};
  const auto& [unit, most] = kUnits.at(end);
  // The largest error is half of the last decimal; the arithmetic of this check has an error of its own.
  if (std::fabs(number * unit - static_cast<long double>(bytes)) > most + unit * 1e-12L) std::abort();
  if (std::fabs(number) >= 1000 || number == 0) std::abort();
}

}  // namespace kmv::fuzz
