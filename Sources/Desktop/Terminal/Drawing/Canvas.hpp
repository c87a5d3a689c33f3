#pragma once

#include <algorithm>
#include <array>
#include <optional>
#include <string_view>
#include <vector>

#include "Desktop/Terminal/Drawing/TerminalCapabilities.hpp"

/// The surface on which the terminal's views draw. The screen is drawn by this project's own code
/// with the terminfo database, and not by a library such as curses, for these reasons:
///
/// - It never waits for a slow terminal: `Painter` returns the bytes of a change, and
///   `TerminalDevice` writes as many as the terminal accepts, without blocking the main loop. A
///   curses refresh blocks.
/// - A typed key is a secret: all memory that contained it, including the read and painted bytes,
///   is overwritten after use. A curses library keeps copies of the screen and of its input.
/// - Views are values that convert keys to cells, so they are tested without a terminal.
namespace zephyl {

struct CellStyle {
  enum class Color : unsigned char { normal, grey, green, orange, red };

  Color color = Color::normal;
  bool bold = false;
  bool dim = false;
  bool reverse = false;

  bool operator==(const CellStyle&) const = default;
};

/// One cell of the screen. A wide character occupies two cells, of which the second is empty.
struct Cell {
  std::array<char, 8> bytes{' '};
  unsigned char length = 1;
  unsigned char width = 1;
  CellStyle style;

  [[nodiscard]] std::string_view text() const { return {bytes.data(), length}; }
  bool operator==(const Cell&) const = default;
};

struct ScreenSize {
  int rows = 0;
  int columns = 0;

  bool operator==(const ScreenSize&) const = default;
};

/// A rectangle of the screen.
struct Area {
  int row = 0;
  int column = 0;
  int rows = 0;
  int columns = 0;

  [[nodiscard]] bool contains(int atRow, int atColumn) const {
    return atRow >= row && atRow < row + rows && atColumn >= column && atColumn < column + columns;
  }
};

struct CursorPosition {
  int row = 0;
  int column = 0;

  bool operator==(const CursorPosition&) const = default;
};

/// The intended contents of the screen, cell by cell. A value. Drawing outside is ignored. The last
/// cell of the last row stays empty, because writing to it makes some terminals scroll.
class Canvas {
 public:
  Canvas(ScreenSize size, TerminalCapabilities capabilities);

  [[nodiscard]] ScreenSize size() const { return size_; }
  [[nodiscard]] Area area() const { return {0, 0, size_.rows, size_.columns}; }
  [[nodiscard]] const TerminalCapabilities& capabilities() const { return capabilities_; }
  [[nodiscard]] const Symbols& symbols() const { return capabilities_.symbols(); }
  [[nodiscard]] const Cell& at(int row, int column) const {
    return cells_[static_cast<std::size_t>(row) * static_cast<std::size_t>(size_.columns) +
                  static_cast<std::size_t>(column)];
  }

  /// Draws a text of one line. Returns the column after it.
  int put(int row, int column, std::string_view text, CellStyle style = {});
  /// Does the same, but draws at most `columns` columns.
  int putWithin(int row, int column, int columns, std::string_view text, CellStyle style = {});
  void clear(const Area& area, CellStyle style = {});
  /// Draws a horizontal line.
  void rule(int row, int column, int columns, CellStyle style = {});
  /// Draws an empty box with a border.
  void frame(const Area& area, CellStyle style = {});
  /// Sets the position of the terminal's cursor, which is hidden otherwise.
  void setCursor(CursorPosition position) { cursor_ = position; }
  void hideCursor() { cursor_.reset(); }
  [[nodiscard]] std::optional<CursorPosition> cursor() const { return cursor_; }

  bool operator==(const Canvas&) const = default;

 private:
  void set(int row, int column, const Cell& cell);

  ScreenSize size_;
  TerminalCapabilities capabilities_;
  std::vector<Cell> cells_;
  std::optional<CursorPosition> cursor_;
};

}  // namespace zephyl
