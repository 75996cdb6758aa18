// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace kmv {

/// A moment in UTC as the platform's calendar writes it.
struct CalendarText {
  std::string day;   ///< "2024-01-02"; the year has four digits or more and counts within its era
  std::string time;  ///< "03:04:05"
};

/// None for a year beyond the calendar's. The platform's calendar is the Julian one before 1582-10-15, so
/// that its distant past is the first of January of the year 1.
std::optional<CalendarText> calendarText(std::int64_t secondsSince1970);

}  // namespace kmv
