#pragma once

#include <cstddef>

#include "Desktop/Dialogs.hpp"
#include "Desktop/Terminal/Drawing/Canvas.hpp"

/// The keys of the screen, for the user: as one line below the menu, and as an alert. Pure.
namespace zephyl::keyHelp {

/// Draws the most important keys, as many as fit, and the number of log lines that were not shown
/// yet.
void draw(Canvas& canvas, const Area& area, std::size_t unseenLogLines);

/// Returns the alert that explains all keys.
Alert alert(const TerminalCapabilities& capabilities);

}  // namespace zephyl::keyHelp
