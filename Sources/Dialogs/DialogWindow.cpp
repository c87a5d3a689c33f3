#include "Dialogs/DialogWindow.hpp"

#include <QAccessible>
#include <QApplication>
#include <QClipboard>
#include <QEvent>
#include <QTimer>
#include <QWindow>

namespace zephyl {

namespace {

/// Copied text goes when the program ends.
void quitWhenNobodyCanPaste() {
  const auto* const clipboard = QGuiApplication::clipboard();
  if (!clipboard->ownsClipboard()) return QCoreApplication::quit();
  QObject::connect(clipboard, &QClipboard::dataChanged, clipboard, [clipboard] {
    if (!clipboard->ownsClipboard()) QCoreApplication::quit();
  });
  QTimer::singleShot(DialogWindow::copiedTextLimit, &QCoreApplication::quit);
}

}  // namespace

void DialogWindow::present() {
  (void)winId();  // so that it has a window to watch
  windowHandle()->installEventFilter(this);
  show();
  raise();
  activateWindow();
  QAccessibleEvent announcement(this, QAccessible::Alert);
  QAccessible::updateAccessibility(&announcement);
}

bool DialogWindow::eventFilter(QObject* watched, QEvent* event) {
  if (event->type() == QEvent::Expose && !shown_ && windowHandle()->isExposed()) {
    shown_ = true;
    // After it has been painted, which follows.
    QTimer::singleShot(0, this, [this] { report({.shown = true}); });
  }
  return QDialog::eventFilter(watched, event);
}

void DialogWindow::answer(const DialogReport& answer) {
  if (!dismissed_) report(answer);
  dismiss();
}

void DialogWindow::dismiss() {
  if (dismissed_) return;
  dismissed_ = true;
  hide();
  report({.hidden = true});
  // Queued, since a program that has not begun to run cannot be made to quit.
  QTimer::singleShot(0, &quitWhenNobodyCanPaste);
}

}  // namespace zephyl
