#include "Helpers/Dialogs/Program/WindowGuard.hpp"

namespace zephyl {

void WindowGuard::exposed(Instant now) {
  exposed_ = true;
  if (policy_ == Policy::always) guard_.restart(now);
  update(now);
}

void WindowGuard::activationChanged(bool active, Instant now) {
  active_ = active;
  if (policy_ == Policy::afterReturning && !active) policy_ = Policy::always;
  if (policy_ == Policy::always) guard_.restart(now);
  update(now);
}

void WindowGuard::keyIgnored(Instant now) {
  guard_.postpone(now);
  update(now);
}

void WindowGuard::due(Instant now) {
  if (dueAt_ && now > *dueAt_ + InputGuard::maxLateness) guard_.postpone(now);
  update(now);
}

bool WindowGuard::isOpen(Instant now) const {
  return exposed_ && (policy_ != Policy::always || guard_.isOpen(now));
}

void WindowGuard::update(Instant now) {
  const bool open = isOpen(now);
  accepts_ = open && (active_ || policy_ != Policy::always);
  dueAt_.reset();
  if (exposed_ && !open) dueAt_ = now + guard_.remaining(now);
}

}  // namespace zephyl
