#pragma once

#include <optional>

#include "Desktop/Terminal/Drawing/Canvas.hpp"
#include "Desktop/Terminal/Drawing/TerminalType.hpp"
#include "System/Data/Secret.hpp"

namespace zephyl {

/// Returns the bytes that make a terminal show a canvas, given what it already shows, which is the
/// only state. The canvas may contain a typed secret. The result is its only copy outside the
/// canvases.
class Painter {
 public:
  explicit Painter(const TerminalType& type) : type_(type) {}

  /// Returns nothing if the terminal already shows the canvas.
  SecretString paint(const Canvas& canvas);
  /// Forgets what the terminal shows, so that the next canvas is painted completely.
  void forget() { shown_.reset(); }

 private:
  void paintRow(const Canvas& canvas, int row, SecretString& bytes);
  void paintCell(const Canvas& canvas, CursorPosition place, SecretString& bytes);
  void moveTo(CursorPosition place, SecretString& bytes);

  const TerminalType& type_;
  std::optional<Canvas> shown_;
  std::optional<CursorPosition> position_;  // nullopt if unknown
  std::optional<CellStyle> style_;
};

}  // namespace zephyl
