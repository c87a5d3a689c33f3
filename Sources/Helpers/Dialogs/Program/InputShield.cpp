#include "Helpers/Dialogs/Program/InputShield.hpp"

#include <QWidget>
#include <QWindow>
#include <algorithm>
#include <utility>

namespace zephyl {

using namespace std::chrono_literals;

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

InputShield::InputShield(QWidget& window, WindowGuard::Policy policy,
                         std::function<void(bool)> changed)
    : window_(window), changed_(std::move(changed)), guard_(policy) {
  opening_.setSingleShot(true);
  opening_.setTimerType(Qt::PreciseTimer);
  connect(&opening_, &QTimer::timeout, this, [this] {
    guard_.due(now());
    update();
  });
}

void InputShield::watch() {
  window_.windowHandle()->installEventFilter(this);
}

void InputShield::exposed() {
  guard_.exposed(now());
  update();
}

void InputShield::activationChanged(bool active) {
  guard_.activationChanged(active, now());
  update();
}

void InputShield::update() {
  if (const auto due = guard_.dueAt()) {
    // Rounded up, because a timer that fires early would find the guard closed and start again.
    opening_.start(std::max(std::chrono::ceil<std::chrono::milliseconds>(*due - now()), 0ms));
  }
  if (accepts_ == guard_.accepts()) return;
  accepts_ = guard_.accepts();
  changed_(accepts_);
}

bool InputShield::eventFilter(QObject* watched, QEvent* event) {
  const auto type = event->type();
  if (type == QEvent::Close && event->spontaneous() && !guard_.isOpen(now())) {
    event->ignore();
    return true;
  }
  if (accepts_ || !isInput(type)) return QObject::eventFilter(watched, event);
  handleIgnored(type);
  return true;
}

void InputShield::handleIgnored(QEvent::Type type) {
  if (type == QEvent::KeyPress) {
    guard_.keyIgnored(now());  // also if it is due to open, and the timer has not fired yet
    update();
  }
  if (isPress(type) && !guard_.isActive()) window_.activateWindow();
}

}  // namespace zephyl
