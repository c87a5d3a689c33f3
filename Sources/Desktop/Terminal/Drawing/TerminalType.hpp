#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Desktop/Terminal/Drawing/Canvas.hpp"
#include "Desktop/Terminal/Drawing/KeyDecoder.hpp"
#include "System/Data/Result.hpp"

namespace zephyl {

/// The control sequences of a terminal type, from the terminfo database. A value.
class TerminalType {
 public:
  /// Fails for an unknown type, and for a terminal that cannot move its cursor. `colors` is whether
  /// the user wants colors.
  static Result<TerminalType> load(const std::string& name, bool colors);

  [[nodiscard]] std::string moveTo(int row, int column) const;
  /// Returns the sequence that sets a style, independently of the current style.
  [[nodiscard]] std::string style(const CellStyle& style) const;

  [[nodiscard]] const std::string& clear() const { return clear_; }
  [[nodiscard]] const std::string& showCursor() const { return showCursor_; }
  [[nodiscard]] const std::string& hideCursor() const { return hideCursor_; }
  [[nodiscard]] const std::string& bell() const { return bell_; }
  /// Return the sequences that show the alternate screen and that restore the original one.
  [[nodiscard]] std::string enter() const;
  [[nodiscard]] std::string leave() const;
  /// Returns the sequence that copies `text` to the clipboard of the terminal's user, or nullopt if
  /// the terminal does not support that.
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
  bool isExtended_ = false;  // supports mouse, paste and clipboard, like terminals in windows
  int colors_ = 0;
  KeyDecoder::Sequences keys_;
};

}  // namespace zephyl
