#pragma once

#include <QEvent>
#include <QObject>
#include <QTimer>
#include <functional>

#include "Helpers/Dialogs/Program/WindowGuard.hpp"

class QWidget;

namespace zephyl {

/// Protects a window from keys and clicks that were meant for another window, as its `WindowGuard`
/// decides. A click on a window that is not active and ignores input only activates it.
class InputShield final : public QObject {
 public:
  /// Calls `changed` when the window starts or stops accepting input. The window must outlive the
  /// shield.
  InputShield(QWidget& window, WindowGuard::Policy policy,
              std::function<void(bool accepts)> changed);

  /// Starts to filter the events of the window, which must have a native window.
  void watch();
  /// Must be called when the window is on screen.
  void exposed();
  /// Must be called when the window becomes active or inactive.
  void activationChanged(bool active);

  [[nodiscard]] bool accepts() const { return accepts_; }

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  /// Handles a change of the guard: sets the timer and reports whether the window accepts input.
  void update();
  void handleIgnored(QEvent::Type type);

  QWidget& window_;
  const std::function<void(bool)> changed_;
  WindowGuard guard_;
  QTimer opening_;
  bool accepts_ = false;
};

}  // namespace zephyl
