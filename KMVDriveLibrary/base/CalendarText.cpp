// SPDX-License-Identifier: MIT
#include "base/CalendarText.h"

#include <cstdio>
#include <ctime>

namespace kmv {
namespace {

constexpr std::int64_t kSecondsPerDay = 86'400;
constexpr std::int64_t kFirstGregorianSecond = -141'427 * kSecondsPerDay;  // 1582-10-15

struct Day {
  std::int64_t year = 0;  // 0 is the one before 1
  int month = 0;
  int day = 0;
};

std::int64_t floorOfQuotient(std::int64_t value, std::int64_t divisor) {
  return value / divisor - (value % divisor < 0 ? 1 : 0);
}

/// Counts in four years from a first of March on, so that a leap day is the last of them.
Day julianDay(std::int64_t secondsSince1970) {
  constexpr std::int64_t kDaysInFourYears = 1461;
  constexpr std::int64_t kDaysFromMarchOfYear0To1970 = 719'470;
  const std::int64_t days = floorOfQuotient(secondsSince1970, kSecondsPerDay) + kDaysFromMarchOfYear0To1970;
  const std::int64_t cycle = floorOfQuotient(days, kDaysInFourYears);
  const auto dayOfCycle = static_cast<int>(days - cycle * kDaysInFourYears);
  const int yearOfCycle = (dayOfCycle - dayOfCycle / 1460) / 365;
  const int dayOfYear = dayOfCycle - 365 * yearOfCycle;
  const int monthFromMarch = (5 * dayOfYear + 2) / 153;
  const bool isNextYear = monthFromMarch >= 10;
  return {cycle * 4 + yearOfCycle + (isNextYear ? 1 : 0), monthFromMarch + (isNextYear ? -9 : 3),
          dayOfYear - (153 * monthFromMarch + 2) / 5 + 1};
}

}  // namespace

std::optional<CalendarText> calendarText(std::int64_t secondsSince1970) {
  const auto seconds = static_cast<std::time_t>(secondsSince1970);
  std::tm parts{};
  if (gmtime_r(&seconds, &parts) == nullptr) return std::nullopt;
  const Day day = secondsSince1970 < kFirstGregorianSecond
                      ? julianDay(secondsSince1970)
                      : Day{std::int64_t{parts.tm_year} + 1900, parts.tm_mon + 1, parts.tm_mday};
  const auto yearOfEra = static_cast<long long>(day.year > 0 ? day.year : 1 - day.year);
  char dayText[64], timeText[64];
  std::snprintf(dayText, sizeof dayText, "%04lld-%02d-%02d", yearOfEra, day.month, day.day);
  std::snprintf(timeText, sizeof timeText, "%02d:%02d:%02d", parts.tm_hour, parts.tm_min, parts.tm_sec);
  return CalendarText{dayText, timeText};
}

}  // namespace kmv
