// SPDX-License-Identifier: MIT
#include <cstdlib>

#include "platform/linux/devices/BlockStatistics.h"
#include "targets.h"

namespace kmv::fuzz {

void diskStatistics(std::string_view input) {
  std::size_t lines = 1;
  for (const char c : input) lines += c == '\n';
  std::size_t records = 0;
  for (std::string_view rest = input; takeDiskStatisticsLine(rest);) {
    if (++records > lines) std::abort();
  }
  parseBlockStatistics(input);
}

}  // namespace kmv::fuzz
