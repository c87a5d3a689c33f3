#include "Desktop/View/Parts.hpp"

#include <QFocusEvent>
#include <QKeyEvent>
#include <QPainter>
#include <cstddef>

#include "Helpers/Dialogs/Program/Appearance.hpp"
#include "Helpers/Dialogs/Program/PlainText.hpp"
#include "System/Data/Text.hpp"

namespace zephyl::sandbox::desktop {
namespace {

constexpr std::size_t maxTextBytes = 2000;
constexpr int maxTypedCharacters = 200;

}  // namespace

QPixmap dotOf(const QColor& color, int size, qreal scale) {
  QPixmap pixmap(QSize(size, size) * scale);
  pixmap.setDevicePixelRatio(scale);
  pixmap.fill(Qt::transparent);
  QPainter painter(&pixmap);
  painter.setRenderHint(QPainter::Antialiasing);
  painter.setPen(Qt::NoPen);
  painter.setBrush(color);
  painter.drawEllipse(QRectF(0.5, 0.5, size - 1, size - 1));
  return pixmap;
}

void outline(QCheckBox& box) {
  auto palette = box.palette();
  palette.setColor(QPalette::Base, palette.color(QPalette::Button).lighter(115));
  box.setPalette(palette);
}

TextLabel::TextLabel() {
  setTextFormat(Qt::PlainText);
  setWordWrap(true);
  setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
  // A long word must not make the window wider.
  setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
}

void TextLabel::showText(const std::string& text) {
  const auto shown = plainText(shortened(text, maxTextBytes));
  if (shown != this->text()) setText(shown);
  setVisible(!shown.isEmpty());
}

void TextLabel::setAlarming() {
  setColor(alarmingColor(palette()));
}

void TextLabel::setSecondary() {
  setColor(secondaryColor(palette()));
}

void TextLabel::setColor(const QColor& color) {
  auto colored = palette();
  colored.setColor(QPalette::WindowText, color);
  setPalette(colored);
}

EditedField::EditedField(const QString& accessibleName) {
  setAccessibleName(accessibleName);
  setMaxLength(maxTypedCharacters);
}

void EditedField::showValue(const std::string& value) {
  if (!isEdited()) replaceValue(value);
}

void EditedField::replaceValue(const std::string& value) {
  const auto shown = QString::fromStdString(value);
  value_ = shown.left(maxLength());
  if (text() != value_) setText(value_);
}

void EditedField::commit() {
  if (!isEdited()) return;
  value_ = text();
  onCommit(value_.toStdString());
}

void EditedField::keyPressEvent(QKeyEvent* event) {
  switch (event->key()) {
    case Qt::Key_Return:
    case Qt::Key_Enter:
      return commit();
    case Qt::Key_Escape:
      return setText(value_);
    default:
      return QLineEdit::keyPressEvent(event);
  }
}

void EditedField::focusOutEvent(QFocusEvent* event) {
  QLineEdit::focusOutEvent(event);
  const auto reason = event->reason();
  if (reason != Qt::ActiveWindowFocusReason && reason != Qt::PopupFocusReason) commit();
}

}  // namespace zephyl::sandbox::desktop
