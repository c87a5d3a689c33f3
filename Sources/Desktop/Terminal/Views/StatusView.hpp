#pragma once

#include <string>

#include "Desktop/Desktop.hpp"
#include "Desktop/Terminal/Drawing/Canvas.hpp"

namespace zephyl {

/// The status line, and the description below it. Pure.
class StatusView {
 public:
  explicit StatusView(const TerminalCapabilities& capabilities) : capabilities_(capabilities) {}

  // Set untrusted values. Return whether the value has changed.
  bool setIcon(StatusIcon icon);
  bool setTitle(const std::string& title);
  bool setDescription(const std::string& description);

  /// Draws the status line, and below it the description if `isRoomy`.
  void draw(Canvas& canvas, bool isRoomy) const;

 private:
  void drawDescription(Canvas& canvas) const;

  const TerminalCapabilities capabilities_;
  StatusIcon icon_ = StatusIcon::idle;
  std::string title_;
  std::string description_;
};

}  // namespace zephyl
