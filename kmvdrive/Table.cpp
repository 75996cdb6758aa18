// SPDX-License-Identifier: MIT
#include "kmvdrive/Table.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "kmvdrive/DisplayText.h"

namespace kmv::tool {
namespace {

constexpr std::size_t kGap = 2;

}  // namespace

void Table::addRow(std::vector<std::string> cells) {
  for (std::string& cell : cells) cell = cell.empty() ? "-" : visibleText(cell);
  rows_.push_back(std::move(cells));
}

std::string Table::text(const Style& style) const {
  std::vector<std::size_t> widths;
  for (const Column& column : columns_) widths.push_back(displayWidth(column.heading));
  for (const auto& row : rows_) {
    for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], displayWidth(row[i]));
  }

  std::string out;
  const auto appendCell = [&](std::size_t i, std::string_view cell, Style::Look look) {
    const bool last = i + 1 == columns_.size();
    const std::string padding(widths[i] - displayWidth(cell), ' ');
    if (columns_[i].align == Align::right) out += padding;
    out += style.apply(look, cell);
    if (columns_[i].align == Align::left && !last) out += padding;
    out += last ? "\n" : std::string(kGap, ' ');
  };
  for (std::size_t i = 0; i < columns_.size(); ++i) appendCell(i, columns_[i].heading, Style::Look::heading);
  for (const auto& row : rows_) {
    for (std::size_t i = 0; i < row.size(); ++i) appendCell(i, row[i], Style::Look::plain);
  }
  return out;
}

}  // namespace kmv::tool
