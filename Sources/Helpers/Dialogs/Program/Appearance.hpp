#pragma once

#include <QColor>
#include <QIcon>
#include <QPalette>

/// How the windows look where the toolkit does not follow the desktop.
namespace zephyl {

/// Dark where the desktop's settings say that it prefers that.
void followColorScheme();

/// Returns the application's icon in several sizes.
QIcon applicationIcon();

/// For what went wrong, and for what matters less; both can be read on the palette's background.
QColor alarmingColor(const QPalette& palette);
QColor secondaryColor(const QPalette& palette);

}  // namespace zephyl
