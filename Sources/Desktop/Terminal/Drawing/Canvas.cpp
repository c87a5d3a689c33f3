#include "Desktop/Terminal/Drawing/Canvas.hpp"

#include "Desktop/Terminal/Drawing/DisplayText.hpp"

namespace zephyl {

namespace {

/// Drops combining characters that do not fit into a cell.
Cell cellOf(const displayText::Glyph& glyph, CellStyle style) {
  Cell cell{.width = static_cast<unsigned char>(glyph.width), .style = style};
  auto length = std::min(glyph.bytes.size(), cell.bytes.size());
  while (length > 0 && length < glyph.bytes.size() &&
         (static_cast<unsigned char>(glyph.bytes[length]) & 0xC0U) == 0x80U) {
    --length;
  }
  cell.bytes[0] = 0;
  std::copy_n(glyph.bytes.begin(), length, cell.bytes.begin());
  cell.length = static_cast<unsigned char>(length);
  return cell;
}

constexpr Cell secondHalf(CellStyle style) {
  return {.bytes = {}, .length = 0, .width = 0, .style = style};
}

}  // namespace

Canvas::Canvas(ScreenSize size, TerminalCapabilities capabilities)
    : size_{std::max(size.rows, 0), std::max(size.columns, 0)},
      capabilities_(capabilities),
      cells_(static_cast<std::size_t>(size_.rows) * static_cast<std::size_t>(size_.columns)) {}

void Canvas::set(int row, int column, const Cell& cell) {
  if (!area().contains(row, column)) return;
  if (row == size_.rows - 1 && column == size_.columns - 1) return;
  auto* const place =
      &cells_[static_cast<std::size_t>(row) * static_cast<std::size_t>(size_.columns) +
              static_cast<std::size_t>(column)];
  // Half of a wide character must not remain.
  if (place->width == 0 && cell.width != 0 && column > 0) {
    *(place - 1) = Cell{.style = (place - 1)->style};
  }
  if (place->width == 2 && column + 1 < size_.columns) *(place + 1) = Cell{.style = place->style};
  *place = cell;
}

int Canvas::put(int row, int column, std::string_view text, CellStyle style) {
  return putWithin(row, column, size_.columns - column, text, style);
}

int Canvas::putWithin(int row, int column, int columns, std::string_view text, CellStyle style) {
  const int end = std::min(column + columns, size_.columns);
  for (const auto& glyph : displayText::glyphs(text)) {
    if (column + glyph.width > end) break;
    set(row, column, cellOf(glyph, style));
    if (glyph.width == 2) set(row, column + 1, secondHalf(style));
    column += glyph.width;
  }
  return column;
}

void Canvas::clear(const Area& area, CellStyle style) {
  for (int row = area.row; row < area.row + area.rows; ++row) {
    for (int column = area.column; column < area.column + area.columns; ++column) {
      set(row, column, Cell{.style = style});
    }
  }
}

void Canvas::rule(int row, int column, int columns, CellStyle style) {
  for (int place = column; place < column + columns; ++place) {
    put(row, place, symbols().horizontal, style);
  }
}

void Canvas::frame(const Area& area, CellStyle style) {
  clear(area);
  const int right = area.column + area.columns - 1;
  const int bottom = area.row + area.rows - 1;
  rule(area.row, area.column, area.columns, style);
  rule(bottom, area.column, area.columns, style);
  for (int row = area.row + 1; row < bottom; ++row) {
    put(row, area.column, symbols().vertical, style);
    put(row, right, symbols().vertical, style);
  }
  put(area.row, area.column, symbols().topLeft, style);
  put(area.row, right, symbols().topRight, style);
  put(bottom, area.column, symbols().bottomLeft, style);
  put(bottom, right, symbols().bottomRight, style);
}

}  // namespace zephyl
