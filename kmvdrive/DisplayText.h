// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kmv::tool {

/// `text` escaped for a terminal that shows UTF-8: no escape sequence, control character or bidirectional
/// override gets through, and the escape is reversible. Control characters and bytes that are not valid UTF-8
/// become `\x1b`, layout controls `\u{202e}`, the backslash `\\`.
std::string visibleText(std::string_view text);

/// The columns that `text`, as `visibleText` made it, takes on a terminal: two for East Asian wide characters
/// and emoji, none for marks that combine with the character before them, one for everything else.
/// Independent of the locale.
std::size_t displayWidth(std::string_view text);

/// The longest beginning of `text` that takes at most this many columns.
std::string_view clippedText(std::string_view text, std::size_t columns);

/// A number of bytes for people, in powers of 1000 as drives are sold: "512 B", "1.5 GB", "16 TB".
std::string sizeText(std::uint64_t bytes);

/// How text for people looks: with colour on a terminal that wants it, else plain.
class Style {
 public:
  enum class Look { plain, heading, dim, good, bad, notice };

  explicit Style(bool coloured) : coloured_(coloured) {}
  /// Coloured when `fileDescriptor` is a terminal, unless NO_COLOR is set or TERM is "dumb" or unset.
  static Style forTerminal(int fileDescriptor);

  /// `text` in that look. REQUIRES: `text` holds no control characters.
  std::string apply(Look look, std::string_view text) const;

 private:
  bool coloured_;
};

/// Rows under headings, aligned by what each cell takes on a terminal. Cells may hold any bytes.
class Table {
 public:
  enum class Align { left, right };
  struct Column {
    std::string_view heading;
    Align align = Align::left;
    int worth = 0;  ///< where there is no room for all, the columns of least worth go first
  };
  static constexpr std::size_t kUnlimited = SIZE_MAX;

  explicit Table(std::vector<Column> columns) : columns_(std::move(columns)) {}

  /// REQUIRES: one cell a column. An empty cell shows as "-".
  void addRow(std::vector<std::string> cells);

  /// One line each for the headings and every row, in at most so many columns of a terminal. The last column that
  /// stays is clipped where that is not enough.
  std::string text(const Style& style, std::size_t width = kUnlimited) const;

 private:
  std::vector<std::size_t> widths() const;
  std::vector<std::size_t> columnsThatFit(const std::vector<std::size_t>& widths, std::size_t width) const;

  std::vector<Column> columns_;
  std::vector<std::vector<std::string>> rows_;  // as they will be shown
};

}  // namespace kmv::tool
