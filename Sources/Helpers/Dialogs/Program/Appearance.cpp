#include "Helpers/Dialogs/Program/Appearance.hpp"

#include <QApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QPixmap>
#include <QStyleFactory>
#include <array>
#include <span>

#include "ApplicationIcon.hpp"

namespace zephyl {

namespace {

/// A slow answer is not waited for, because showing the window is more important than its colors.
constexpr int settingsLimitMilliseconds = 100;
constexpr unsigned preferDark = 1;

bool isDark(const QPalette& palette) {
  return palette.color(QPalette::Window).lightness() < 128;
}

bool desktopPrefersDark() {
  auto question = QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.portal.Desktop"),
                                                 QStringLiteral("/org/freedesktop/portal/desktop"),
                                                 QStringLiteral("org.freedesktop.portal.Settings"),
                                                 QStringLiteral("Read"));
  question.setAutoStartService(false);
  question << QStringLiteral("org.freedesktop.appearance") << QStringLiteral("color-scheme");
  const auto answer =
      QDBusConnection::sessionBus().call(question, QDBus::Block, settingsLimitMilliseconds);
  QVariant value = answer.arguments().value(0);
  while (value.canConvert<QDBusVariant>()) value = value.value<QDBusVariant>().variant();
  return value.toUInt() == preferDark;
}

QPalette darkPalette() {
  QPalette palette;
  const QColor text(0xee, 0xee, 0xec);
  const QColor faint(0x8c, 0x8c, 0x8c);
  palette.setColor(QPalette::Window, QColor(0x2d, 0x2d, 0x2f));
  palette.setColor(QPalette::Base, QColor(0x1f, 0x1f, 0x21));
  palette.setColor(QPalette::AlternateBase, QColor(0x28, 0x28, 0x2a));
  palette.setColor(QPalette::Button, QColor(0x3f, 0x3f, 0x42));
  palette.setColor(QPalette::ToolTipBase, QColor(0x3f, 0x3f, 0x42));
  for (const auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText,
                          QPalette::ToolTipText, QPalette::BrightText}) {
    palette.setColor(role, text);
    palette.setColor(QPalette::Disabled, role, faint);
  }
  palette.setColor(QPalette::PlaceholderText, faint);
  palette.setColor(QPalette::Light, QColor(0x55, 0x55, 0x58));
  palette.setColor(QPalette::Midlight, QColor(0x48, 0x48, 0x4b));
  palette.setColor(QPalette::Mid, QColor(0x26, 0x26, 0x28));
  palette.setColor(QPalette::Dark, QColor(0x1a, 0x1a, 0x1c));
  palette.setColor(QPalette::Shadow, QColor(0x10, 0x10, 0x10));
  palette.setColor(QPalette::Highlight, QColor(0x35, 0x7a, 0xd0));
  palette.setColor(QPalette::HighlightedText, Qt::white);
  palette.setColor(QPalette::Link, QColor(0x6c, 0xac, 0xf5));
  return palette;
}

}  // namespace

void followColorScheme() {
  if (isDark(QApplication::palette()) || !desktopPrefersDark()) return;
  QApplication::setPalette(darkPalette());
}

QIcon applicationIcon() {
  constexpr std::array<std::span<const unsigned char>, 4> sizes{
      images::application16, images::application32, images::application48, images::application128};
  QIcon icon;
  for (const auto png : sizes) {
    QPixmap pixmap;
    pixmap.loadFromData(png.data(), static_cast<uint>(png.size()), "PNG");
    icon.addPixmap(pixmap);
  }
  return icon;
}

QColor alarmingColor(const QPalette& palette) {
  return isDark(palette) ? QColor(0xff, 0x7b, 0x72) : QColor(0xc0, 0x1c, 0x28);
}

QColor secondaryColor(const QPalette& palette) {
  const QColor text = palette.color(QPalette::WindowText);
  const QColor window = palette.color(QPalette::Window);
  const auto mixed = [](int strong, int weak) { return (strong * 7 + weak * 3) / 10; };
  return {mixed(text.red(), window.red()), mixed(text.green(), window.green()),
          mixed(text.blue(), window.blue())};
}

}  // namespace zephyl
