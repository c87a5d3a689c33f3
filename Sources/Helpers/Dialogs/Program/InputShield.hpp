#pragma once

#include <QEvent>
#include <QObject>
#include <QTimer>
#include <functional>

#include "Desktop/InputGuard.hpp"

class QWidget;

namespace zephyl {

/// Protects a window from keys and clicks that were meant for another window. No window accepts
/// input before it is on screen. A shielded window accepts it only while it is active and its
/// `InputGuard` is open. A click on a shielded inactive window only activates it.
class InputShield final : public QObject {
 public:
  enum class Policy {
    never,
    afterReturning,  ///< after the window was inactive for the first time
    always,
  };

  /// Calls `changed` when the window starts or stops accepting input. The window must outlive the
  /// shield.
  InputShield(QWidget& window, Policy policy, std::function<void(bool accepts)> changed);

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
  [[nodiscard]] bool isOpen() const;
  void restart();
  void update();
  /// Handles the end of the timer.
  void openUnlessLate();
  void handleIgnored(QEvent::Type type);

  QWidget& window_;
  Policy policy_;
  const std::function<void(bool)> changed_;
  InputGuard guard_;
  QTimer opening_;
  Instant due_{};  // when the timer is to fire
  bool exposed_ = false;
  bool active_ = false;
  bool accepts_ = false;
};

}  // namespace zephyl
