// SPDX-License-Identifier: MIT
#include "kmvdrive/ValueJSON.h"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <optional>
#include <string_view>

namespace kmv::tool {
namespace {

/// "2001-01-01T00:00:00Z", with milliseconds when there are any; none for an instant beyond the calendar's
/// years.
std::optional<std::string> isoText(Date date) {
  constexpr double kLargestSecond = 1e15;  // an upper bound that every gmtime_r takes: thirty million years
  const double milliseconds = std::round((date.secondsSinceReferenceDate + Date::kReferenceDate) * 1000);
  if (!(std::fabs(milliseconds) < kLargestSecond * 1000)) return std::nullopt;
  const double seconds = std::floor(milliseconds / 1000);
  const auto time = static_cast<std::time_t>(seconds);
  std::tm parts{};
  if (gmtime_r(&time, &parts) == nullptr) return std::nullopt;
  char text[64];
  std::string iso(text, std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &parts));
  const int fraction = static_cast<int>(milliseconds - seconds * 1000);
  if (fraction != 0) {
    std::snprintf(text, sizeof text, ".%03d", fraction);
    iso += text;
  }
  return iso + "Z";
}

std::string base64Text(const Data& data) {
  constexpr std::string_view kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  text.reserve((data.size() + 2) / 3 * 4);
  for (std::size_t at = 0; at < data.size(); at += 3) {
    std::uint32_t group = 0;
    for (std::size_t i = 0; i < 3; ++i) {
      group = (group << 8) | (at + i < data.size() ? std::to_integer<std::uint32_t>(data[at + i]) : 0U);
    }
    for (std::size_t i = 0; i < 4; ++i) {
      text += at + i <= data.size() ? kDigits[(group >> (18 - 6 * i)) & 0x3fU] : '=';
    }
  }
  return text;
}

JSON jsonOfDictionary(const Dictionary& dictionary) {
  JSON object = JSON::object();
  for (const auto& [key, value] : dictionary) object[key] = jsonOf(value);
  return object;
}

JSON jsonOfArray(const Array& values) {
  JSON array = JSON::array();
  for (const Value& value : values) array.push_back(jsonOf(value));
  return array;
}

}  // namespace

JSON jsonOfInteger(const Value& number) {
  return number.integerValue() < 0 ? JSON(number.integerValue()) : JSON(number.unsignedValue());
}

JSON jsonOf(const Value& value) {
  switch (value.kind()) {
    case Value::Kind::boolean:
      return value.boolValue();
    case Value::Kind::integer:
      return jsonOfInteger(value);
    case Value::Kind::real:
      return value.doubleValue();
    case Value::Kind::date:
      return isoText(*value.asDate()).value_or(value.description());
    case Value::Kind::data:
      return base64Text(*value.asData());
    case Value::Kind::array:
      return jsonOfArray(*value.asArray());
    case Value::Kind::dictionary:
      return jsonOfDictionary(*value.asDictionary());
    case Value::Kind::text:
    case Value::Kind::url:
    case Value::Kind::uuid:
    case Value::Kind::object:
      break;
  }
  return value.description();
}

std::string jsonLine(const JSON& document) {
  constexpr int kOneLine = -1;
  JSON line = document;
  if (line.is_object()) {
    line = {{"schema", kSchema}};
    line.update(document);
  }
  return line.dump(kOneLine, ' ', /*ensure_ascii=*/true, JSON::error_handler_t::replace) + "\n";
}

}  // namespace kmv::tool
