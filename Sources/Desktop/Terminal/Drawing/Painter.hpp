#pragma once

#include <optional>

#include "Desktop/Terminal/Drawing/Canvas.hpp"
#include "Desktop/Terminal/Drawing/TerminalType.hpp"
#include "System/Data/Secret.hpp"

namespace zephyl {

/// Says what to write to a terminal so that it shows a canvas, given what it shows already. Pure
/// but for remembering that. What is shown may be a secret that the user types: what it returns is
/// the only copy.
class Painter {
 public:
  explicit Painter(const TerminalType& type) : type_(type) {}

  /// Nothing when the terminal shows it already.
  SecretString paint(const Canvas& canvas);
  /// What the terminal shows is not known any more: the next canvas is painted whole.
  void forget() { shown_.reset(); }

 private:
  void paintRow(const Canvas& canvas, int row, SecretString& bytes);
  void paintCell(const Canvas& canvas, CursorPosition place, SecretString& bytes);
  void moveTo(CursorPosition place, SecretString& bytes);

  const TerminalType& type_;
  std::optional<Canvas> shown_;
  std::optional<CursorPosition> position_;  // nullopt: unknown
  std::optional<CellStyle> style_;
};

}  // namespace zephyl
