#include "Dialogs/DialogWindow.hpp"

#include <QAccessible>
#include <QApplication>
#include <QClipboard>
#include <QEvent>
#include <QWindow>

namespace zephyl {

DialogWindow::DialogWindow(Conversation& conversation) : conversation_(conversation) {
  painted_.setSingleShot(true);
  connect(&painted_, &QTimer::timeout, this, [this] { report({.shown = true}); });
  ending_.setSingleShot(true);
  connect(&ending_, &QTimer::timeout, this, &QCoreApplication::quit);
}

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
    painted_.start(0);  // what is exposed is painted first
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
  const auto* const clipboard = QGuiApplication::clipboard();
  if (!clipboard->ownsClipboard()) return ending_.start(0);
  ending_.start(copiedTextLimit);
  connect(clipboard, &QClipboard::dataChanged, this, [clipboard] {
    if (!clipboard->ownsClipboard()) QCoreApplication::quit();
  });
}

}  // namespace zephyl
