#pragma once

#include <QSize>

namespace zephyl {

/// Returns the size that a window without its frame may have on each of the screens. The window
/// system decides on which one it appears.
QSize roomOnEveryScreen();

}  // namespace zephyl
