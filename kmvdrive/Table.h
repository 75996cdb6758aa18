// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "kmvdrive/Style.h"

namespace kmv::tool {

/// Rows under headings, aligned by what each cell takes on a terminal. Cells may hold any bytes.
class Table {
 public:
  enum class Align { left, right };
  struct Column {
    std::string_view heading;
    Align align = Align::left;
  };

  explicit Table(std::vector<Column> columns) : columns_(std::move(columns)) {}

  /// REQUIRES: one cell a column. An empty cell shows as "-".
  void addRow(std::vector<std::string> cells);

  /// One line each for the headings and every row.
  std::string text(const Style& style) const;

 private:
  std::vector<Column> columns_;
  std::vector<std::vector<std::string>> rows_;  // as they will be shown
};

}  // namespace kmv::tool
