#pragma once

#include <algorithm>

#include "System/Concurrency/Clock.hpp"

namespace zephyl {

/// Decides from when on a window may act on keys and clicks. One that appears while the user does
/// something else gets the rest of what was meant for another window: it ignores input for
/// `settling` after it appears or becomes active, and then until no key was pressed for `quiet`.
/// A value; the caller gives the time.
class InputGuard {
 public:
  static constexpr Duration settling = std::chrono::seconds(1);
  static constexpr Duration quiet = std::chrono::milliseconds(500);

  /// The window has appeared, or has become active.
  void restart(Instant now) { opensAt_ = now + settling; }
  /// A key was pressed in the window. Postpones the opening, unless the guard is open already.
  void keyPressed(Instant now) {
    if (!isOpen(now)) opensAt_ = std::max(opensAt_, now + quiet);
  }

  /// Requires `restart` to have been called.
  [[nodiscard]] bool isOpen(Instant now) const { return now >= opensAt_; }
  /// The time until the guard opens if no further key is pressed; not positive when it is open.
  [[nodiscard]] Duration remaining(Instant now) const { return opensAt_ - now; }

 private:
  Instant opensAt_ = Instant::max();
};

}  // namespace zephyl
