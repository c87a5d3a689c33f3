#include "Desktop/Terminal/Drawing/Painter.hpp"

#include <algorithm>

namespace zephyl {

bool Painter::copy(std::string_view text) {
  const auto bytes = type_.copy(text);
  if (bytes) pending_ += *bytes;
  return bytes.has_value();
}

SecretString Painter::paint(const Canvas& canvas) {
  SecretString bytes = std::exchange(pending_, {});
  if (shown_ && *shown_ == canvas) return bytes;
  const bool whole = !shown_ || shown_->size() != canvas.size();
  const bool cursorWasShown = whole || shown_->cursor();
  position_.reset();
  style_.reset();
  if (cursorWasShown) bytes.append(type_.hideCursor());
  if (whole) {
    bytes.append(type_.style({})).append(type_.clear());
    shown_ = Canvas(canvas.size(), canvas.capabilities());
  }
  for (int row = 0; row < canvas.size().rows; ++row) paintRow(canvas, row, bytes);
  if (style_ && *style_ != CellStyle{}) bytes.append(type_.style({}));
  if (const auto cursor = canvas.cursor()) {
    moveTo(*cursor, bytes);
    bytes.append(type_.showCursor());
  }
  shown_ = canvas;
  return bytes;
}

/// Repaints a short unchanged stretch instead of moving the cursor over it.
void Painter::paintRow(const Canvas& canvas, int row, SecretString& bytes) {
  constexpr int shortestJump = 5;
  int unpainted = -1;  // the beginning of the unchanged stretch before this cell
  int painted = 0;     // the number of painted cells before that stretch
  for (int column = 0; column < canvas.size().columns; ++column) {
    if (canvas.at(row, column) == shown_->at(row, column)) {
      if (unpainted < 0) unpainted = column;
      continue;
    }
    const bool near = painted > 0 && unpainted >= 0 && column - unpainted < shortestJump;
    for (int skipped = near ? unpainted : column; skipped < column; ++skipped) {
      paintCell(canvas, {row, skipped}, bytes);
    }
    paintCell(canvas, {row, column}, bytes);
    painted = 1;
    unpainted = -1;
  }
}

void Painter::paintCell(const Canvas& canvas, CursorPosition place, SecretString& bytes) {
  const Cell& cell = canvas.at(place.row, place.column);
  if (cell.width == 0) return;  // shown by its first half
  moveTo(place, bytes);
  if (style_ != cell.style) {
    bytes.append(type_.style(cell.style));
    style_ = cell.style;
  }
  bytes.append(cell.text());
  position_ = CursorPosition{place.row, place.column + 1};
  // Terminals differ in the width of some characters, and in the cursor position after the end of a
  // row.
  const bool plain = cell.width == 1 && cell.length <= 3;
  if (!plain || position_->column >= canvas.size().columns) position_.reset();
}

void Painter::moveTo(CursorPosition place, SecretString& bytes) {
  if (position_ == place) return;
  bytes.append(type_.moveTo(place.row, place.column));
  position_ = place;
}

}  // namespace zephyl
