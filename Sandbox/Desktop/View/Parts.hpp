#pragma once

#include <QCheckBox>
#include <QColor>
#include <QLabel>
#include <QLineEdit>
#include <QPixmap>
#include <QString>
#include <functional>
#include <string>

/// Parts that several widgets of the window share.
namespace zephyl::sandbox::desktop {

namespace colors {
inline const QColor good(0x2e, 0xa0, 0x4f);
inline const QColor busy(0xe8, 0x89, 0x0c);
inline const QColor bad(0xd6, 0x2f, 0x2f);
inline const QColor idle(0x8c, 0x8c, 0x8c);
}  // namespace colors

/// Returns a disc with a diameter of `size` device-independent pixels.
QPixmap dotOf(const QColor& color, int size, qreal scale);

/// Makes the square of an unchecked box visible on a dark background.
void outline(QCheckBox& box);

/// Shows an untrusted text without markup, wrapped and cut at 2000 bytes. The text can be selected
/// with mouse and keyboard.
class TextLabel final : public QLabel {
 public:
  TextLabel();

  /// Hides the label when the text is empty.
  void showText(const std::string& text);
  void setAlarming();
  void setSecondary();

  /// One line. A longer text gets the height that it needs at its width.
  [[nodiscard]] QSize sizeHint() const override { return minimumSizeHint(); }
  [[nodiscard]] QSize minimumSizeHint() const override { return {0, fontMetrics().height()}; }

 private:
  void setColor(const QColor& color);
};

/// A line that shows a value and lets the user edit it. Typed text is kept until it is committed,
/// with Return or by leaving the field, or discarded with Escape.
class EditedField final : public QLineEdit {
 public:
  explicit EditedField(const QString& accessibleName);

  /// Called with the typed text.
  std::function<void(const std::string& text)> onCommit;

  /// Shows a value, unless the user has typed another one.
  void showValue(const std::string& value);
  /// Shows a value and discards typed text.
  void replaceValue(const std::string& value);
  /// Restores a committed text that was refused as typed text.
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
