#pragma once

#include <QEvent>
#include <QObject>
#include <QTimer>
#include <functional>

#include "Desktop/InputGuard.hpp"

class QWidget;

namespace zephyl {

/// Keeps keys and clicks that were meant for another window from a window of this program. No
/// window accepts input before it is on screen. A shielded one accepts it only while it is active
/// and its `InputGuard` is open; a click on it while it is inactive makes it active and does
/// nothing else.
class InputShield final : public QObject {
 public:
  enum class Policy {
    never,
    afterReturning,  ///< from the first time on that the window stops being active
    always,
  };

  /// `changed` is called when the window begins or stops accepting input. The window outlives the
  /// shield.
  InputShield(QWidget& window, Policy policy, std::function<void(bool accepts)> changed);

  /// Starts to watch the window, which has a native window.
  void watch();
  /// The window has come on screen.
  void exposed();
  /// The window has become active, or has stopped being so.
  void activationChanged(bool active);

  [[nodiscard]] bool accepts() const { return accepts_; }

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  [[nodiscard]] bool isOpen() const;
  void restart();
  void update();
  void noteIgnored(QEvent::Type type);

  QWidget& window_;
  Policy policy_;
  const std::function<void(bool)> changed_;
  InputGuard guard_;
  QTimer opening_;
  bool exposed_ = false;
  bool active_ = false;
  bool accepts_ = false;
};

}  // namespace zephyl
