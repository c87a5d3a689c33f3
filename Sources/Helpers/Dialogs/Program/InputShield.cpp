#include "Helpers/Dialogs/Program/InputShield.hpp"

#include <QWidget>
#include <QWindow>
#include <algorithm>
#include <utility>

namespace zephyl {

namespace {

Instant now() {
  return std::chrono::steady_clock::now();
}

bool isPress(QEvent::Type type) {
  return type == QEvent::MouseButtonPress || type == QEvent::TouchBegin ||
         type == QEvent::TabletPress;
}

bool isInput(QEvent::Type type) {
  switch (type) {
    case QEvent::KeyPress:
    case QEvent::KeyRelease:
    case QEvent::MouseButtonPress:
    case QEvent::MouseButtonRelease:
    case QEvent::MouseButtonDblClick:
    case QEvent::Wheel:
    case QEvent::TouchBegin:
    case QEvent::TouchUpdate:
    case QEvent::TouchEnd:
    case QEvent::TabletPress:
    case QEvent::TabletRelease:
    case QEvent::ContextMenu:
      return true;
    default:
      return false;
  }
}

}  // namespace

InputShield::InputShield(QWidget& window, Policy policy, std::function<void(bool)> changed)
    : window_(window), policy_(policy), changed_(std::move(changed)) {
  opening_.setSingleShot(true);
  opening_.setTimerType(Qt::PreciseTimer);
  connect(&opening_, &QTimer::timeout, this, [this] { openUnlessLate(); });
}

void InputShield::watch() {
  window_.windowHandle()->installEventFilter(this);
}

void InputShield::exposed() {
  exposed_ = true;
  if (policy_ == Policy::always) {
    restart();
  } else {
    update();
  }
}

void InputShield::activationChanged(bool active) {
  active_ = active;
  if (policy_ == Policy::afterReturning && !active) policy_ = Policy::always;
  if (policy_ == Policy::always) restart();
}

bool InputShield::isOpen() const {
  return exposed_ && (policy_ != Policy::always || guard_.isOpen(now()));
}

void InputShield::restart() {
  guard_.restart(now());
  update();
}

void InputShield::update() {
  const bool open = isOpen();
  const bool accepts = open && (active_ || policy_ != Policy::always);
  if (!open && exposed_) {
    // Rounded up, because a timer that fires early would find the guard closed and start again.
    const auto remaining = std::min(guard_.remaining(now()), InputGuard::settling);
    const auto delay = std::chrono::ceil<std::chrono::milliseconds>(remaining);
    opening_.start(delay);
    due_ = now() + delay;
  }
  if (std::exchange(accepts_, accepts) != accepts) changed_(accepts);
}

void InputShield::openUnlessLate() {
  // The program was held up. Keys from that time are still on their way to it.
  if (now() > due_ + InputGuard::maxLateness) guard_.postpone(now());
  update();
}

bool InputShield::eventFilter(QObject* watched, QEvent* event) {
  const auto type = event->type();
  if (type == QEvent::Close && event->spontaneous() && !isOpen()) {
    event->ignore();
    return true;
  }
  if (accepts_ || !isInput(type)) return QObject::eventFilter(watched, event);
  handleIgnored(type);
  return true;
}

void InputShield::handleIgnored(QEvent::Type type) {
  if (type == QEvent::KeyPress) {
    guard_.postpone(now());  // also if it is due to open, and the timer has not fired yet
    update();
  }
  if (isPress(type) && !active_) window_.activateWindow();
}

}  // namespace zephyl
