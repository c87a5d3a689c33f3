#pragma once

#include <optional>
#include <string>

#include "Desktop/Terminal/Drawing/Canvas.hpp"
#include "Desktop/Terminal/Drawing/TerminalType.hpp"

namespace zephyl {

/// Says what to write to a terminal so that it shows a canvas, given what it shows already. Pure
/// but for remembering that. What is shown may be a secret that the user types: what it returns is
/// the only copy.
class Painter {
 public:
  explicit Painter(const TerminalType& type) : type_(type) {}

  /// Nothing when the terminal shows it already.
  std::string paint(const Canvas& canvas);
  /// What the terminal shows is not known any more: the next canvas is painted whole.
  void forget() { shown_.reset(); }

 private:
  void paintRow(const Canvas& canvas, int row, std::string& bytes);
  void paintCell(const Canvas& canvas, CursorPosition place, std::string& bytes);
  void moveTo(CursorPosition place, std::string& bytes);

  const TerminalType& type_;
  std::optional<Canvas> shown_;
  std::optional<CursorPosition> position_;  // none when it cannot be told
  std::optional<CellStyle> style_;
};

}  // namespace zephyl
