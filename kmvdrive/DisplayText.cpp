// SPDX-License-Identifier: MIT
#include "kmvdrive/DisplayText.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <numeric>

namespace kmv::tool {
namespace {

struct Character {
  char32_t value;
  std::size_t length;
  bool valid;  // otherwise `value` is the one byte that begins no valid sequence
};

/// Decodes the first character; rejects overlong forms and surrogates. The library's own is not public.
Character firstCharacter(std::string_view text) {
  const auto byteAt = [text](std::size_t at) { return static_cast<unsigned char>(text[at]); };
  const unsigned char lead = byteAt(0);
  const Character invalid{lead, 1, false};
  if (lead < 0x80) return {lead, 1, true};
  if (lead < 0xc2 || lead > 0xf4) return invalid;
  const std::size_t length = lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : 4;
  if (text.size() < length) return invalid;
  char32_t value = lead & (0x7fU >> length);
  for (std::size_t at = 1; at < length; ++at) {
    if ((byteAt(at) & 0xc0) != 0x80) return invalid;
    value = (value << 6) | (byteAt(at) & 0x3fU);
  }
  const bool overlong = (length == 3 && value < 0x800) || (length == 4 && value < 0x10000);
  const bool surrogate = value >= 0xd800 && value <= 0xdfff;
  return overlong || surrogate || value > 0x10ffff ? invalid : Character{value, length, true};
}

struct Range {
  char32_t first;
  char32_t last;
};

template <std::size_t N>
bool isIn(const Range (&ranges)[N], char32_t character) {
  const auto* range = std::lower_bound(std::begin(ranges), std::end(ranges), character,
                                       [](const Range& r, char32_t c) { return r.last < c; });
  return range != std::end(ranges) && range->first <= character;
}

// Layout controls: not shown themselves, they reorder, break or hide the text around them.
constexpr Range kLayoutControls[] = {{0xad, 0xad},     {0x61c, 0x61c},    {0x180e, 0x180e}, {0x200b, 0x200b},
                                     {0x200e, 0x200f}, {0x2028, 0x202e},  {0x2060, 0x206f}, {0xfeff, 0xfeff},
                                     {0xfff9, 0xfffb}, {0xe0000, 0xe007f}};

// Zero-width: combining marks of the common scripts, joiners, variation selectors.
constexpr Range kZeroWidth[] = {{0x300, 0x36f},   {0x483, 0x489},   {0x591, 0x5bd},    {0x610, 0x61a},
                                {0x64b, 0x65f},   {0x900, 0x902},   {0x93c, 0x93c},    {0x941, 0x948},
                                {0xe31, 0xe31},   {0xe34, 0xe3a},   {0xe47, 0xe4e},    {0x1ab0, 0x1aff},
                                {0x1dc0, 0x1dff}, {0x200c, 0x200d}, {0x20d0, 0x20f0},  {0x3099, 0x309a},
                                {0xfe00, 0xfe0f}, {0xfe20, 0xfe2f}, {0xe0100, 0xe01ef}};

// Double-width: East Asian wide and full-width forms, emoji.
constexpr Range kDoubleWidth[] = {
    {0x1100, 0x115f},   {0x2e80, 0x303e},   {0x3041, 0x33ff},   {0x3400, 0x4dbf},
    {0x4e00, 0xa4cf},   {0xa960, 0xa97c},   {0xac00, 0xd7a3},   {0xf900, 0xfaff},
    {0xfe30, 0xfe6f},   {0xff01, 0xff60},   {0xffe0, 0xffe6},   {0x1f300, 0x1f64f},
    {0x1f680, 0x1f6ff}, {0x1f900, 0x1f9ff}, {0x1fa70, 0x1faff}, {0x20000, 0x3fffd}};

void appendVisible(std::string& out, const Character& character, std::string_view bytes) {
  const char32_t value = character.value;
  const bool isControl = value < 0x20 || (value >= 0x7f && value < 0xa0) || isIn(kLayoutControls, value);
  if (!character.valid || isControl) {
    char escaped[16];
    std::snprintf(escaped, sizeof escaped, character.length == 1 ? "\\x%02x" : "\\u{%x}",
                  static_cast<unsigned>(value));
    out += escaped;
  } else {
    out += value == U'\\' ? std::string_view("\\\\") : bytes;
  }
}

std::string_view variable(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? std::string_view() : std::string_view(value);
}

/// By `Style::Look`: nothing for plain, bold, faint, green, red, yellow.
constexpr const char* kSequences[] = {"", "\x1b[1m", "\x1b[2m", "\x1b[32m", "\x1b[31m", "\x1b[33m"};

constexpr std::size_t kColumnGap = 2;

}  // namespace

std::string visibleText(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  while (!text.empty()) {
    const Character character = firstCharacter(text);
    appendVisible(out, character, text.substr(0, character.length));
    text.remove_prefix(character.length);
  }
  return out;
}

std::size_t displayWidth(std::string_view text) {
  std::size_t width = 0;
  while (!text.empty()) {
    const Character character = firstCharacter(text);
    text.remove_prefix(character.length);
    if (isIn(kDoubleWidth, character.value)) ++width;
    if (!isIn(kZeroWidth, character.value)) ++width;
  }
  return width;
}

std::string_view clippedText(std::string_view text, std::size_t columns) {
  std::size_t end = 0;
  while (end < text.size()) {
    const std::size_t next = end + firstCharacter(text.substr(end)).length;
    if (displayWidth(text.substr(0, next)) > columns) break;
    end = next;
  }
  return text.substr(0, end);
}

std::string sizeText(std::uint64_t bytes) {
  constexpr const char* kUnits[] = {"B", "kB", "MB", "GB", "TB", "PB", "EB"};
  auto amount = static_cast<double>(bytes);
  std::size_t unit = 0;
  while (amount >= 999.5 && unit + 1 < std::size(kUnits)) {  // 999.6 kB reads as 1.0 MB, not as 1000 kB
    amount /= 1000;
    ++unit;
  }
  char text[48];
  std::snprintf(text, sizeof text, unit > 0 && amount < 9.95 ? "%.1f %s" : "%.0f %s", amount, kUnits[unit]);
  return text;
}

Style Style::forTerminal(int fileDescriptor) {
  const bool wanted = variable("NO_COLOR").empty() && !variable("TERM").empty() && variable("TERM") != "dumb";
  return Style(wanted && isatty(fileDescriptor) == 1);
}

std::string Style::apply(Look look, std::string_view text) const {
  if (!coloured_ || look == Look::plain || text.empty()) return std::string(text);
  return std::string(kSequences[static_cast<std::size_t>(look)]).append(text).append("\x1b[0m");
}

void Table::addRow(std::vector<std::string> cells) {
  for (std::string& cell : cells) cell = cell.empty() ? "-" : visibleText(cell);
  rows_.push_back(std::move(cells));
}

std::vector<std::size_t> Table::widths() const {
  std::vector<std::size_t> widths;
  for (const Column& column : columns_) widths.push_back(displayWidth(column.heading));
  for (const auto& row : rows_) {
    for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], displayWidth(row[i]));
  }
  return widths;
}

std::vector<std::size_t> Table::columnsThatFit(const std::vector<std::size_t>& widths,
                                               std::size_t width) const {
  std::vector<std::size_t> shown(columns_.size());
  std::iota(shown.begin(), shown.end(), std::size_t{0});
  const auto takes = [&] {
    std::size_t sum = kColumnGap * (shown.size() - 1);
    for (const std::size_t i : shown) sum += widths[i];
    return sum;
  };
  while (shown.size() > 1 && takes() > width) {
    shown.erase(std::min_element(shown.begin(), shown.end(), [&](std::size_t a, std::size_t b) {
      return columns_[a].worth < columns_[b].worth;
    }));
  }
  return shown;
}

std::string Table::text(const Style& style, std::size_t width) const {
  auto widths = this->widths();
  const auto shown = columnsThatFit(widths, width);
  std::size_t before = 0;
  for (const std::size_t i : shown) before += i == shown.back() ? 0 : widths[i] + kColumnGap;
  if (width != kUnlimited)
    widths[shown.back()] = std::min(widths[shown.back()], width - std::min(before, width));
  std::string out;
  const auto append = [&](std::size_t i, std::string_view whole, Style::Look look) {
    const bool last = i == shown.back();
    const std::string_view cell = clippedText(whole, widths[i]);
    const std::string padding(widths[i] - displayWidth(cell), ' ');
    if (columns_[i].align == Align::right) out += padding;
    out += style.apply(look, cell);
    if (columns_[i].align == Align::left && !last) out += padding;
    out += last ? "\n" : std::string(kColumnGap, ' ');
  };
  for (const std::size_t i : shown) append(i, columns_[i].heading, Style::Look::heading);
  for (const auto& row : rows_) {
    for (const std::size_t i : shown) append(i, row[i], Style::Look::plain);
  }
  return out;
}

}  // namespace kmv::tool
