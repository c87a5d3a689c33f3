#pragma once

#include <algorithm>
#include <array>
#include <optional>
#include <string_view>
#include <vector>

#include "Desktop/Terminal/Drawing/TerminalCapabilities.hpp"

/// What the terminal's views draw on. The screen is drawn by code of this project, with the
/// terminfo database and without a library such as curses, because
///
/// - it never waits for a terminal that does not keep up: `Painter` returns the bytes of a change,
///   and `TerminalDevice` writes as many as the terminal takes, on the main loop's terms. A curses
///   refresh blocks;
/// - a typed key is a secret: all memory that held it, including the bytes read and painted, is
///   overwritten after use. A curses library keeps copies of the screen and of its input;
/// - views are values from keys to cells, so they are tested without a terminal.
namespace zephyl {

struct CellStyle {
  enum class Color : unsigned char { normal, grey, green, orange, red };

  Color color = Color::normal;
  bool bold = false;
  bool dim = false;
  bool reverse = false;

  bool operator==(const CellStyle&) const = default;
};

/// One place on the screen. A wide character takes two; the second one is empty.
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

/// A part of the screen.
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

/// What is to be on the screen, cell by cell: a value that views draw on. What lies outside is
/// left out. The last cell of the last row stays empty, since writing there makes some terminals
/// scroll.
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

  /// Draws a text of one line; returns the column behind it.
  int put(int row, int column, std::string_view text, CellStyle style = {});
  /// The same, cut where `columns` of it are drawn.
  int putWithin(int row, int column, int columns, std::string_view text, CellStyle style = {});
  void clear(const Area& area, CellStyle style = {});
  /// A line from left to right.
  void rule(int row, int column, int columns, CellStyle style = {});
  /// An empty box with a border.
  void frame(const Area& area, CellStyle style = {});
  /// Where the terminal's cursor is to stand; hidden unless set.
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
