#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Desktop/Terminal/Drawing/Canvas.hpp"
#include "Desktop/Terminal/Drawing/KeyDecoder.hpp"
#include "System/Data/Result.hpp"

namespace zephyl {

/// How a type of terminal is driven, from the terminfo database: which bytes do what. A value.
class TerminalType {
 public:
  /// Fails for a type that is not known, and for one whose cursor cannot be moved. `colors` says
  /// whether the user wants any.
  static Result<TerminalType> load(const std::string& name, bool colors);

  [[nodiscard]] std::string moveTo(int row, int column) const;
  /// From whatever style is set to this one.
  [[nodiscard]] std::string style(const CellStyle& style) const;

  [[nodiscard]] const std::string& clear() const { return clear_; }
  [[nodiscard]] const std::string& showCursor() const { return showCursor_; }
  [[nodiscard]] const std::string& hideCursor() const { return hideCursor_; }
  [[nodiscard]] const std::string& bell() const { return bell_; }
  /// Takes over the screen, and gives it back as it was.
  [[nodiscard]] std::string enter() const;
  [[nodiscard]] std::string leave() const;
  /// Returns the sequence that puts `text` on the clipboard of the terminal's user; empty if the
  /// terminal cannot.
  [[nodiscard]] std::optional<std::string> copy(std::string_view text) const;

  [[nodiscard]] bool hasColors() const { return colors_ >= 8; }
  [[nodiscard]] const KeyDecoder::Sequences& keys() const { return keys_; }

 private:
  TerminalType() = default;
  void read();
  [[nodiscard]] std::string color(CellStyle::Color color) const;

  std::string move_;
  std::string plain_;
  std::string bold_;
  std::string dim_;
  std::string reverse_;
  std::string foreground_;
  std::string clear_;
  std::string showCursor_;
  std::string hideCursor_;
  std::string bell_;
  std::string enter_;
  std::string leave_;
  bool isExtended_ = false;  // knows what terminals in windows know: mouse, paste, clipboard
  int colors_ = 0;
  KeyDecoder::Sequences keys_;
};

}  // namespace zephyl
