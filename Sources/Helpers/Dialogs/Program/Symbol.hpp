#pragma once

#include <QPixmap>
#include <QString>

#include "Desktop/Dialogs.hpp"

namespace zephyl {

/// Returns the symbol of an alert. It is drawn, so that it is sharp at every scale and does not
/// depend on installed icons.
QPixmap symbolOf(Alert::Style style, int size, qreal scale);

/// Returns the symbol's accessible name.
QString nameOfSymbol(Alert::Style style);

}  // namespace zephyl
