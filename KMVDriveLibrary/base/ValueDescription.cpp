// SPDX-License-Identifier: MIT
// The printed form of values, as log lines show them.
#include <KMVDriveLibrary/Value.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "base/UTF8.h"

namespace kmv {
namespace {

constexpr std::size_t kIndentWidth = 4;

/// The shortest decimal text that reads back as the same number; whole numbers without a point.
std::string realText(double value) {
  char text[40];
  for (int digits = 15; digits <= 17; ++digits) {
    std::snprintf(text, sizeof text, "%.*g", digits, value);
    if (std::strtod(text, nullptr) == value) break;
  }
  return text;
}

std::string dateText(Date date) {
  constexpr double kReferenceDate = 978307200;  // 2001-01-01 in seconds since 1970
  const auto seconds =
      static_cast<std::time_t>(Value(date.secondsSinceReferenceDate + kReferenceDate).integerValue());
  std::tm parts{};
  if (gmtime_r(&seconds, &parts) == nullptr) return realText(date.secondsSinceReferenceDate);
  char text[64];
  const std::size_t length = std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S +0000", &parts);
  return std::string(text, length);
}

std::string dataText(const Data& data) {
  std::string text = "{length = " + std::to_string(data.size()) + ", bytes = 0x";
  char digits[3];
  for (const std::byte byte : data) {
    std::snprintf(digits, sizeof digits, "%02x", static_cast<unsigned>(byte));
    text += digits;
  }
  return text + "}";
}

bool isBareText(std::string_view text) {
  for (const char c : text) {
    const bool plain = (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
    if (!plain) return false;
  }
  return !text.empty();
}

void appendUnit(std::string& out, unsigned unit) {
  char escaped[sizeof "\\Uffffffff"];
  std::snprintf(escaped, sizeof escaped, "\\U%04x", unit);
  out += escaped;
}

void appendEscaped(std::string& out, char32_t character) {
  switch (character) {
    case U'"':
      out += "\\\"";
      return;
    case U'\\':
      out += "\\\\";
      return;
    case U'\n':
      out += "\\n";
      return;
    case U'\t':
      out += "\\t";
      return;
    case U'\r':
      out += "\\r";
      return;
    default:
      break;
  }
  if (character >= 0x20 && character < 0x7f) {
    out += static_cast<char>(character);
  } else if (character > 0xffff) {  // two units of the text's 16-bit form
    appendUnit(out, 0xd800U + ((static_cast<unsigned>(character) - 0x10000U) >> 10));
    appendUnit(out, 0xdc00U + (static_cast<unsigned>(character) & 0x3ffU));
  } else {
    appendUnit(out, static_cast<unsigned>(character));
  }
}

/// Text as it stands inside a container: bare when it is all letters and digits, else quoted and escaped.
std::string innerText(std::string_view text) {
  if (isBareText(text)) return std::string(text);
  std::string quoted = "\"";
  for (std::size_t at = 0; at < text.size();) appendEscaped(quoted, nextCharacter(text, at));
  return quoted + "\"";
}

std::string containerText(const Value& value, std::size_t level);

std::string memberText(const Value& value, std::size_t level) {
  const bool isContainer = value.asArray() != nullptr || value.asDictionary() != nullptr;
  if (!isContainer) return innerText(value.description());
  return std::string(level * kIndentWidth, ' ') + containerText(value, level);
}

std::string containerText(const Value& value, std::size_t level) {
  const std::string outer(level * kIndentWidth, ' ');
  const std::string inner((level + 1) * kIndentWidth, ' ');
  std::string text;
  if (const Array* array = value.asArray()) {
    for (const Value& item : *array) {
      text += text.empty() ? "" : ",\n";
      const bool nested = item.asArray() != nullptr || item.asDictionary() != nullptr;
      text += nested ? memberText(item, level + 1) : inner + memberText(item, level + 1);
    }
    return "(\n" + text + (text.empty() ? "" : "\n") + outer + ")";
  }
  for (const auto& [key, member] : *value.asDictionary()) {
    text += inner + innerText(key) + " = " + memberText(member, level + 1) + ";\n";
  }
  return "{\n" + text + outer + "}";
}

}  // namespace

std::string Value::description() const {
  switch (kind()) {
    case Kind::boolean:
      return boolValue() ? "1" : "0";
    case Kind::integer:
      return std::to_string(integerValue());
    case Kind::real:
      return realText(doubleValue());
    case Kind::text:
      return *asText();
    case Kind::url:
      return asURL()->absoluteString();
    case Kind::uuid:
      return asUUID()->string();
    case Kind::date:
      return dateText(*asDate());
    case Kind::data:
      return dataText(*asData());
    case Kind::array:
    case Kind::dictionary:
      return containerText(*this, 0);
    case Kind::object:
      break;
  }
  const auto object = asObject();
  return object == nullptr ? "<object>" : object->description();
}

}  // namespace kmv
