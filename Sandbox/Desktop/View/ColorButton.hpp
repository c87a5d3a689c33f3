#pragma once

#include <QColorDialog>
#include <QMenu>
#include <QPushButton>
#include <functional>
#include <memory>
#include <string>

namespace zephyl::sandbox::desktop {

/// A button that shows a color and lets the user choose another one from a menu.
class ColorButton final : public QPushButton {
 public:
  ColorButton();

  /// Called with "#rrggbb", or with an empty text for the server's own color.
  std::function<void(const std::string& color)> onChosen;

  void showColor(const std::string& color);

 private:
  void addColor(const QString& name, const QColor& color);
  void chooseOther();

  std::string color_ = "?";  // before the first color is shown
  QMenu menu_;
  std::unique_ptr<QColorDialog> dialog_;
};

}  // namespace zephyl::sandbox::desktop
