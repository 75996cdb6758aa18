// SPDX-License-Identifier: MIT
#include "codexvfs/JSONDocument.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "base/UTF8.h"

namespace kmv {
namespace {

constexpr std::size_t kDeepestNesting = 512;

class Null final : public Object {
 public:
  std::string description() const override { return "<null>"; }
};

/// Builds values of ours from what the parser finds.
class Builder final : public nlohmann::json_sax<nlohmann::json> {
 public:
  std::optional<Value> take() { return std::move(whole_); }

  bool null() override { return add(std::make_shared<Null>()); }
  bool boolean(bool value) override { return add(value); }
  bool number_integer(number_integer_t value) override { return add(value); }
  bool number_unsigned(number_unsigned_t value) override { return add(value); }
  bool number_float(number_float_t value, const string_t&) override { return add(value); }
  bool string(string_t& value) override { return add(std::move(value)); }
  bool binary(binary_t&) override { return false; }
  bool start_object(std::size_t) override { return begin(/*isObject=*/true); }
  bool start_array(std::size_t) override { return begin(/*isObject=*/false); }
  bool key(string_t& value) override {
    open_.back().key = std::move(value);
    return true;
  }
  bool end_object() override { return end(); }
  bool end_array() override { return end(); }
  bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception&) override {
    return false;
  }

 private:
  struct Level {
    bool isObject;
    std::string key = {};
    Dictionary object = {};
    Array array = {};
  };

  bool begin(bool isObject) {
    if (open_.size() == kDeepestNesting) return false;
    open_.push_back({isObject});
    return true;
  }
  bool end() {
    Level level = std::move(open_.back());
    open_.pop_back();
    return add(level.isObject ? Value(std::move(level.object)) : Value(std::move(level.array)));
  }
  bool add(Value value) {
    if (open_.empty()) {
      if (value.asArray() == nullptr && value.asDictionary() == nullptr) return false;
      whole_ = std::move(value);
    } else if (open_.back().isObject) {
      open_.back().object.set(open_.back().key, std::move(value));
    } else {
      open_.back().array.push_back(std::move(value));
    }
    return true;
  }

  std::vector<Level> open_;
  std::optional<Value> whole_;
};

/// The size of a code unit of the text in bytes, and its byte order.
struct Encoding {
  std::size_t unit = 1;
  bool bigEndian = false;
  std::size_t markLength = 0;
};

Encoding encodingOf(std::string_view bytes) {
  using namespace std::string_view_literals;
  if (bytes.starts_with("\xef\xbb\xbf"sv)) return {1, false, 3};
  if (bytes.starts_with("\xff\xfe\0\0"sv)) return {4, false, 4};
  if (bytes.starts_with("\0\0\xfe\xff"sv)) return {4, true, 4};
  if (bytes.starts_with("\xff\xfe"sv)) return {2, false, 2};
  if (bytes.starts_with("\xfe\xff"sv)) return {2, true, 2};
  if (bytes.size() < 4) return {};
  // Every document begins with ASCII, so the zeros among its first bytes tell.
  const auto isZero = [&](std::size_t at) { return bytes[at] == '\0'; };
  if (isZero(0) && isZero(1) && isZero(2)) return {4, true, 0};
  if (isZero(1) && isZero(2) && isZero(3)) return {4, false, 0};
  if (isZero(0) && isZero(2)) return {2, true, 0};
  if (isZero(1) && isZero(3)) return {2, false, 0};
  return {};
}

/// The document in UTF-8; none where code units are truncated or invalid.
std::optional<std::string> textOf(std::string_view bytes) {
  const Encoding encoding = encodingOf(bytes);
  bytes.remove_prefix(encoding.markLength);
  if (encoding.unit == 1) return std::string(bytes);
  if (bytes.size() % encoding.unit != 0) return std::nullopt;
  const auto unitAt = [&](std::size_t at) {
    std::uint32_t unit = 0;
    for (std::size_t i = 0; i < encoding.unit; ++i) {
      const std::size_t place = encoding.bigEndian ? at + i : at + encoding.unit - 1 - i;
      unit = unit << 8 | static_cast<unsigned char>(bytes[place]);
    }
    return unit;
  };
  std::string text;
  for (std::size_t at = 0; at < bytes.size(); at += encoding.unit) {
    std::uint32_t character = unitAt(at);
    if (encoding.unit == 2 && character >= 0xd800 && character < 0xdc00 && at + 2 < bytes.size()) {
      const std::uint32_t second = unitAt(at + 2);
      if (second < 0xdc00 || second > 0xdfff) return std::nullopt;
      character = 0x10000 + ((character - 0xd800) << 10) + (second - 0xdc00);
      at += 2;
    }
    if ((character >= 0xd800 && character <= 0xdfff) || character > 0x10ffff) return std::nullopt;
    appendUTF8(text, character);
  }
  return text;
}

bool isSpace(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

/// The text with a blank for every trailing comma, one between a value and a closing bracket: the platform's
/// reader accepts it, the parser does not.
std::string withoutClosingCommas(std::string text) {
  bool inString = false;
  char last = '\0';  // outside strings, other than space
  std::size_t comma = std::string::npos;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const char c = text[at];
    if (inString) {
      if (c == '\\') ++at;
      inString = c != '"';
      if (!inString) last = c;
      continue;
    }
    if (isSpace(c)) continue;
    inString = c == '"';
    if ((c == ']' || c == '}') && comma != std::string::npos) text[comma] = ' ';
    const bool followsValue = last != '[' && last != '{' && last != ',' && last != ':';
    comma = c == ',' && followsValue ? at : std::string::npos;
    last = c;
  }
  return text;
}

}  // namespace

std::optional<Value> valueOfJSON(std::string_view bytes) {
  const auto text = textOf(bytes);
  if (!text) return std::nullopt;
  Builder builder;
  if (!nlohmann::json::sax_parse(withoutClosingCommas(*text), &builder)) return std::nullopt;
  return builder.take();
}

}  // namespace kmv
