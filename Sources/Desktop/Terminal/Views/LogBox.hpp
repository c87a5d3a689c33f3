#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Desktop/Terminal/Drawing/Canvas.hpp"
#include "Desktop/Terminal/Drawing/Key.hpp"
#include "Desktop/Terminal/Views/ScrollingText.hpp"

namespace zephyl {

/// A log on the whole screen. Pure.
class LogBox {
 public:
  enum class Outcome { none, copy, write, toggle, close };

  LogBox(std::string_view title, std::string_view message,
         const TerminalCapabilities& capabilities);

  /// Sets untrusted text. Control characters are made visible.
  void setText(const std::vector<std::string>& lines);
  void toEnd() { text_.toEnd(); }
  /// Sets the title of the toggle between the whole log and a part of it. Empty for no toggle.
  void setToggle(std::string title) { toggle_ = std::move(title); }

  Outcome handle(const Key& key, bool mayClose = true);
  /// Draws the log. Shows the hints only if the box may be closed.
  void draw(Canvas& canvas, const Area& area, bool mayClose = true);

 private:
  [[nodiscard]] std::string hints(int columns) const;

  const TerminalCapabilities capabilities_;
  const std::string title_;
  const std::string message_;
  std::string toggle_;
  ScrollingText text_;
};

}  // namespace zephyl
