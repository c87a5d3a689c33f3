#pragma once

#include <QColor>
#include <QIcon>
#include <QPalette>

/// The appearance of the windows where the toolkit does not follow the desktop.
namespace zephyl {

/// Uses a dark palette if the desktop's settings prefer one.
void followColorScheme();

/// Returns the application's icon in several sizes.
QIcon applicationIcon();

/// Return colors for errors and for secondary text that are readable on the palette's background.
QColor alarmingColor(const QPalette& palette);
QColor secondaryColor(const QPalette& palette);

}  // namespace zephyl
