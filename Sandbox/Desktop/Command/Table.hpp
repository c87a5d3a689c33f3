#pragma once

#include <string>
#include <vector>

namespace zephyl::sandbox::desktop {

/// Columns for a terminal, as wide as their widest cell; the first row is the heading. A column
/// with nothing below its heading is left out.
class Table {
 public:
  using Row = std::vector<std::string>;

  explicit Table(Row heading) { rows_.push_back(std::move(heading)); }

  /// Requires as many cells as the heading has. Makes control characters visible.
  void add(Row row);

  [[nodiscard]] std::string text() const;

 private:
  std::vector<Row> rows_;
};

/// The columns of a terminal that a text occupies when every character occupies one.
std::size_t width(const std::string& text);

/// The text, followed by spaces up to the width.
std::string padded(const std::string& text, std::size_t columns);

}  // namespace zephyl::sandbox::desktop
