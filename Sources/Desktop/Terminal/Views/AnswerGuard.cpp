#include "Desktop/Terminal/Views/AnswerGuard.hpp"

#include <algorithm>

namespace zephyl {

Duration AnswerGuard::drawn(const DialogStack& dialogs, Instant now) {
  if (drawnTop_ != dialogs.top()) topChanged(dialogs, now);
  if (!drawnTop_) return {};
  // If the program was held up, keys from that time are still on their way to it.
  if (state_ == State::closed && guard_.remaining(now) < -InputGuard::maxLateness)
    guard_.postpone(now);
  const Duration left = remaining(now);
  if (left <= Duration::zero() && state_ == State::closed) state_ = State::open;
  return std::max(left, Duration::zero());
}

void AnswerGuard::topChanged(const DialogStack& dialogs, Instant now) {
  drawnTop_ = dialogs.top();
  topSince_ = now;
  const bool isUnrequested = drawnTop_ && !dialogs.topIsRequestedByUser();
  state_ = isUnrequested ? State::closed : State::unguarded;
  guard_.restart(now);
}

void AnswerGuard::terminalActivated(const DialogStack& dialogs, Instant now) {
  if (!drawnTop_ || drawnTop_ != dialogs.top()) return;
  if (state_ != State::unguarded || dialogs.topPermitsSomething()) state_ = State::closed;
  guard_.restart(now);
}

AnswerGuard::Permission AnswerGuard::keyPressed(const DialogStack& dialogs, Instant now) {
  // A key that is pressed before the dialog is on screen was not meant for it.
  if (drawnTop_ != dialogs.top()) return Permission::ignore;
  if (state_ == State::closed) {
    guard_.postpone(now);
    return Permission::ignore;
  }
  return remaining(now) <= Duration::zero() ? Permission::answer : Permission::navigate;
}

Duration AnswerGuard::remaining(Instant now) const {
  if (state_ == State::unguarded) return topSince_ + requestedDelay - now;
  return guard_.remaining(now);
}

}  // namespace zephyl
