#include "Helpers/Dialogs/Program/DialogWindow.hpp"

#include <QAccessible>
#include <QApplication>
#include <QClipboard>
#include <QEvent>
#include <QWindow>

namespace zephyl {

DialogWindow::DialogWindow(Conversation& conversation, WindowGuard::Policy shielding)
    : conversation_(conversation),
      shield_(*this, shielding, [this](bool accepts) { acceptInput(accepts); }) {
  painted_.setSingleShot(true);
  connect(&painted_, &QTimer::timeout, this, [this] {
    report(DialogShown{});
    shield_.exposed();
  });
  ending_.setSingleShot(true);
  connect(&ending_, &QTimer::timeout, this, &QCoreApplication::quit);
}

void DialogWindow::present(bool requestedByUser) {
  setAttribute(Qt::WA_ShowWithoutActivating, !requestedByUser);  // read when the window is created
  (void)winId();
  windowHandle()->installEventFilter(this);
  shield_.watch();
  show();
  raise();
  if (requestedByUser) {
    activateWindow();
  } else {
    QApplication::alert(this);
  }
  QAccessibleEvent announcement(this, QAccessible::Alert);
  QAccessible::updateAccessibility(&announcement);
}

bool DialogWindow::eventFilter(QObject* watched, QEvent* event) {
  if (event->type() == QEvent::Expose && !shown_ && windowHandle()->isExposed()) {
    shown_ = true;
    painted_.start(0);  // the exposed window is painted first
  }
  return QDialog::eventFilter(watched, event);
}

void DialogWindow::changeEvent(QEvent* event) {
  QDialog::changeEvent(event);
  if (event->type() == QEvent::ActivationChange) shield_.activationChanged(isActiveWindow());
}

void DialogWindow::bringToFront(const std::string& activationToken) {
  if (dismissed_) return;
  // The toolkit reads the token when it requests the activation.
  if (!activationToken.empty()) {
    qputenv("XDG_ACTIVATION_TOKEN", QByteArray::fromStdString(activationToken));
  }
  setAttribute(Qt::WA_ShowWithoutActivating, false);
  setWindowState(windowState() & ~Qt::WindowMinimized);
  raise();
  activateWindow();
}

void DialogWindow::answer(const DialogReport& answer) {
  if (!dismissed_) report(answer);
  dismiss();
}

void DialogWindow::dismiss() {
  if (dismissed_) return;
  dismissed_ = true;
  hide();
  report(DialogHidden{});
  const auto* const clipboard = QGuiApplication::clipboard();
  if (!clipboard->ownsClipboard()) return ending_.start(0);
  ending_.start(copiedTextTimeout);
  connect(clipboard, &QClipboard::dataChanged, this, [clipboard] {
    if (!clipboard->ownsClipboard()) QCoreApplication::quit();
  });
}

}  // namespace zephyl
