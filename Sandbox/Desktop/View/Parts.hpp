#pragma once

#include <QCheckBox>
#include <QColor>
#include <QLabel>
#include <QLineEdit>
#include <QPixmap>
#include <QString>
#include <functional>
#include <string>

/// Parts that several widgets of the window are made of.
namespace zephyl::sandbox::desktop {

namespace colors {
inline const QColor good(0x2e, 0xa0, 0x4f);
inline const QColor busy(0xe8, 0x89, 0x0c);
inline const QColor bad(0xd6, 0x2f, 0x2f);
inline const QColor idle(0x8c, 0x8c, 0x8c);
}  // namespace colors

/// A disc with a diameter of `size` pixels that do not depend on the device.
QPixmap dotOf(const QColor& color, int size, qreal scale);

/// Makes the square of a box that is not checked visible on a dark background, too.
void outline(QCheckBox& box);

/// A text from outside: plain, wrapped, at most 2000 bytes long. Can be selected with the mouse and
/// the keyboard.
class TextLabel final : public QLabel {
 public:
  TextLabel();

  /// Hides the label when the text is empty.
  void showText(const std::string& text);
  void setAlarming();
  void setSecondary();

  /// One line; a longer text takes what it needs at the width that it is given.
  [[nodiscard]] QSize sizeHint() const override { return minimumSizeHint(); }
  [[nodiscard]] QSize minimumSizeHint() const override { return {0, fontMetrics().height()}; }

 private:
  void setColor(const QColor& color);
};

/// A line that shows a value and lets the user replace it. What the user types is kept until it is
/// committed, with Return or by leaving the field, or given up with Escape.
class EditedField final : public QLineEdit {
 public:
  explicit EditedField(const QString& accessibleName);

  /// Called with what the user has typed.
  std::function<void(const std::string& text)> onCommit;

  /// Shows a value, unless the user has typed another one.
  void showValue(const std::string& value);
  /// Shows a value and drops what was typed.
  void replaceValue(const std::string& value);
  /// A committed text was not accepted: it counts as typed again.
  void rejectCommit(const std::string& value) { value_ = QString::fromStdString(value); }
  [[nodiscard]] bool isEdited() const { return text() != value_; }
  void commit();

 protected:
  void keyPressEvent(QKeyEvent* event) override;
  void focusOutEvent(QFocusEvent* event) override;

 private:
  QString value_;
};

}  // namespace zephyl::sandbox::desktop
