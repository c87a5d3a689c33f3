#include "Desktop/Command/Table.hpp"

#include <algorithm>
#include <utility>

#include "System/Data/Text.hpp"

namespace zephyl::sandbox::desktop {
namespace {

constexpr std::size_t gap = 2;

/// For each column its width, 0 for one to be left out.
std::vector<std::size_t> widths(const std::vector<Table::Row>& rows) {
  std::vector<std::size_t> result(rows.front().size(), 0);
  for (std::size_t column = 0; column < result.size(); ++column) {
    for (auto row = rows.begin() + 1; row != rows.end(); ++row) {
      result[column] = std::max(result[column], width((*row)[column]));
    }
    if (result[column] > 0) result[column] = std::max(result[column], width(rows[0][column]));
  }
  return result;
}

}  // namespace

std::size_t width(const std::string& text) {
  const auto continues = [](char byte) { return (static_cast<unsigned char>(byte) >> 6U) == 2; };
  return text.size() - static_cast<std::size_t>(std::count_if(text.begin(), text.end(), continues));
}

std::string padded(const std::string& text, std::size_t columns) {
  const auto taken = width(text);
  return taken < columns ? text + std::string(columns - taken, ' ') : text;
}

void Table::add(Row row) {
  for (auto& cell : row) cell = visible(cell);
  rows_.push_back(std::move(row));
}

std::string Table::text() const {
  const auto columns = widths(rows_);
  std::string result;
  for (const auto& row : rows_) {
    std::string line;
    for (std::size_t column = 0; column < row.size(); ++column) {
      if (columns[column] > 0) line += padded(row[column], columns[column] + gap);
    }
    line.erase(line.find_last_not_of(' ') + 1);
    result += line + '\n';
  }
  return result;
}

}  // namespace zephyl::sandbox::desktop
