#include "Helpers/Dialogs/Program/Screens.hpp"

#include <QGuiApplication>
#include <QScreen>

namespace zephyl {

namespace {

/// What a title bar and borders take of a screen, whatever the desktop.
constexpr QSize frame{16, 48};

}  // namespace

QSize roomOnEveryScreen() {
  QSize room = QGuiApplication::primaryScreen()->availableSize();
  for (const auto* const screen : QGuiApplication::screens()) {
    room = room.boundedTo(screen->availableSize());
  }
  return room - frame;
}

}  // namespace zephyl
