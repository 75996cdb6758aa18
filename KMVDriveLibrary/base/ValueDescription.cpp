// SPDX-License-Identifier: MIT
// The printed form of values, as log lines show them.
#include <KMVDriveLibrary/Value.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "base/CalendarText.h"
#include "base/UTF8.h"
#include "base/ValueDescription.h"

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
  const auto text = calendarText(Value(date.secondsSinceReferenceDate + Date::kReferenceDate).integerValue());
  return text ? text->day + " " + text->time + " +0000" : realText(date.secondsSinceReferenceDate);
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

/// Text inside a container: bare when it is all letters and digits, else quoted and escaped.
std::string innerText(std::string_view text) {
  if (isBareText(text)) return std::string(text);
  std::string quoted = "\"";
  for (std::size_t at = 0; at < text.size();) appendEscaped(quoted, nextCharacter(text, at));
  return quoted + "\"";
}

bool isContainer(const Value& value) {
  return value.asArray() != nullptr || value.asDictionary() != nullptr;
}

/// Writes containers, and stops when the text has reached its limit.
class ContainerWriter {
 public:
  ContainerWriter(std::string& text, std::size_t most) : text_(text), most_(most) {}

  void write(const Value& value, std::size_t level) {
    const bool isArray = value.asArray() != nullptr;
    text_ += isArray ? "(\n" : "{\n";
    if (isArray) {
      writeItems(*value.asArray(), level + 1);
    } else {
      writeMembers(*value.asDictionary(), level + 1);
    }
    indent(level);
    text_ += isArray ? ")" : "}";
  }

 private:
  void writeItems(const Array& items, std::size_t level) {
    for (std::size_t i = 0; i < items.size() && text_.size() < most_; ++i) {
      indent(level);
      writeMember(items[i], level, /*isNamed=*/false);
      text_ += i + 1 < items.size() ? ",\n" : "\n";
    }
  }
  void writeMembers(const Dictionary& members, std::size_t level) {
    for (const auto& [key, member] : members) {
      if (text_.size() >= most_) return;
      indent(level);
      text_ += innerText(key) + " = ";
      writeMember(member, level, /*isNamed=*/true);
      text_ += ";\n";
    }
  }
  void writeMember(const Value& member, std::size_t level, bool isNamed) {
    if (!isContainer(member)) {
      text_ += innerText(member.description());
      return;
    }
    if (isNamed) indent(level);  // after the name the indentation is repeated: intended
    write(member, level);
  }
  void indent(std::size_t level) { text_.append(level * kIndentWidth, ' '); }

  std::string& text_;
  std::size_t most_;
};

std::string containerDescription(const Value& value, std::size_t most) {
  std::string text;
  ContainerWriter(text, most).write(value, 0);
  return text;
}

}  // namespace

std::string clippedDescription(const Value& value, std::size_t most) {
  std::string text = isContainer(value) ? containerDescription(value, most) : value.description();
  if (text.size() > most) {
    std::size_t end = most;  // at a character boundary
    while (end > 0 && isUTF8Continuation(text[end])) --end;
    text.resize(end);
    text += "…";
  }
  return text;
}

std::string Value::description() const {
  switch (kind()) {
    case Kind::boolean:
      return boolValue() ? "1" : "0";
    case Kind::integer:
      return integerValue() < 0 ? std::to_string(integerValue()) : std::to_string(unsignedValue());
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
      return containerDescription(*this, std::string::npos);
    case Kind::object:
      break;
  }
  const auto object = asObject();
  return object == nullptr ? "<object>" : object->description();
}

}  // namespace kmv
