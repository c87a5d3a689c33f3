#pragma once

#include <optional>
#include <string>
#include <utility>

#include "Desktop/Terminal/Drawing/Canvas.hpp"
#include "Desktop/Terminal/Drawing/TerminalType.hpp"
#include "System/Data/Secret.hpp"

namespace zephyl {

/// Returns the bytes that make a terminal show a canvas, given what it already shows. The canvas
/// may contain a typed secret. The result is its only copy outside the canvases.
class Painter {
 public:
  explicit Painter(TerminalType type) : type_(std::move(type)) {}

  /// Returns the empty string if the terminal already shows the canvas and nothing else is pending.
  SecretString paint(const Canvas& canvas);
  /// Rings the bell with the next canvas.
  void ringBell() { pending_ += type_.bell(); }
  /// Copies `text` to the clipboard with the next canvas. Returns false if the terminal does not
  /// support that.
  bool copy(std::string_view text);
  /// Forgets what the terminal shows, so that the next canvas is painted completely.
  void forget() { shown_.reset(); }

 private:
  void paintRow(const Canvas& canvas, int row, SecretString& bytes);
  void paintCell(const Canvas& canvas, CursorPosition place, SecretString& bytes);
  void moveTo(CursorPosition place, SecretString& bytes);

  const TerminalType type_;
  std::string pending_;  // precedes the next canvas
  std::optional<Canvas> shown_;
  std::optional<CursorPosition> position_;  // nullopt if unknown
  std::optional<CellStyle> style_;
};

}  // namespace zephyl
