#pragma once

#include <string_view>

namespace zephyl {

/// The characters that views use for drawing.
struct Symbols {
  std::string_view dot;
  std::string_view closedMenu;
  std::string_view openMenu;
  std::string_view chosen;  ///< before the chosen row or button
  std::string_view horizontal;
  std::string_view vertical;
  std::string_view topLeft;
  std::string_view topRight;
  std::string_view bottomLeft;
  std::string_view bottomRight;
  std::string_view ellipsis;
  std::string_view moreAbove;
  std::string_view moreBelow;
  std::string_view filled;  ///< the filled part of a bar
  std::string_view empty;
};

/// The capabilities of a terminal.
struct TerminalCapabilities {
  bool unicode = true;
  bool colors = true;

  [[nodiscard]] const Symbols& symbols() const {
    static constexpr Symbols rich{"●", "▸", "▾", "›", "─", "│", "┌", "┐",
                                  "└", "┘", "…", "↑", "↓", "█", "░"};
    static constexpr Symbols plain{"*", ">", "v",   ">", "-", "|", "+", "+",
                                   "+", "+", "...", "^", "v", "#", "."};
    return unicode ? rich : plain;
  }

  bool operator==(const TerminalCapabilities&) const = default;
};

}  // namespace zephyl
