#pragma once

#include <QPixmap>
#include <QString>

#include "Desktop/Dialogs.hpp"

namespace zephyl {

/// The picture beside an alert's text. Drawn, so that it is sharp at every scale and there
/// whichever icons are installed.
QPixmap symbolOf(Alert::Style style, int size, qreal scale);

/// The same in a word, for who cannot see it.
QString nameOfSymbol(Alert::Style style);

}  // namespace zephyl
