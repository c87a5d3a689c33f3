#include "Desktop/View/ColorButton.hpp"

#include <QIcon>
#include <algorithm>
#include <array>

#include "Desktop/View/Parts.hpp"

namespace zephyl::sandbox::desktop {
namespace {

constexpr int swatchSize = 14;

struct NamedColor {
  const char* name;
  const char* value;
};

constexpr std::array<NamedColor, 8> namedColors{{{"Red", "#c62f3a"},
                                                 {"Orange", "#e07a1f"},
                                                 {"Yellow", "#d9a514"},
                                                 {"Green", "#2e9e4f"},
                                                 {"Teal", "#12908e"},
                                                 {"Blue", "#3366cc"},
                                                 {"Purple", "#7a3db8"},
                                                 {"Pink", "#c2458d"}}};

QString nameOf(const QColor& color) {
  if (!color.isValid()) return QStringLiteral("None");
  const auto known = std::ranges::find(
      namedColors, color.name(), [](const NamedColor& named) { return QString(named.value); });
  return known == namedColors.end() ? color.name() : QString(known->name);
}

}  // namespace

ColorButton::ColorButton() {
  setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
  for (const auto& [name, value] : namedColors) addColor(name, QColor(value));
  menu_.addSeparator();
  addColor(QStringLiteral("Server's own"), {});
  connect(menu_.addAction(QStringLiteral("Other…")), &QAction::triggered, this,
          [this] { chooseOther(); });
  setMenu(&menu_);
}

void ColorButton::addColor(const QString& name, const QColor& color) {
  auto* const action = menu_.addAction(name);
  if (color.isValid()) action->setIcon(dotOf(color, swatchSize, devicePixelRatio()));
  connect(action, &QAction::triggered, this, [this, color] {
    onChosen(color.isValid() ? color.name().toStdString() : std::string());
  });
}

void ColorButton::showColor(const std::string& color) {
  if (color == color_) return;
  color_ = color;
  const QColor shown(QString::fromStdString(color));
  setIcon(shown.isValid() ? dotOf(shown, swatchSize, devicePixelRatio()) : QIcon());
  setText(nameOf(shown));
  setAccessibleName(QStringLiteral("Color: ") + text());
}

void ColorButton::chooseOther() {
  dialog_ = std::make_unique<QColorDialog>(QColor(QString::fromStdString(color_)), this);
  dialog_->setOption(QColorDialog::DontUseNativeDialog);
  connect(dialog_.get(), &QColorDialog::colorSelected, this,
          [this](const QColor& color) { onChosen(color.name().toStdString()); });
  dialog_->open();
}

}  // namespace zephyl::sandbox::desktop
