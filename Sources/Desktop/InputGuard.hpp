#pragma once

#include <algorithm>

#include "System/Concurrency/Clock.hpp"

namespace zephyl {

/// Decides when a window may react to keys and clicks. A window that appears unexpectedly receives
/// input that was meant for another window. So it ignores input for `settling` after it appears or
/// becomes active, and then until no key was pressed for `quiet`. A value. The caller supplies the
/// time.
class InputGuard {
 public:
  static constexpr Duration settling = std::chrono::seconds(1);
  static constexpr Duration quiet = std::chrono::milliseconds(500);
  /// A program that notices the opening later than this was held up, and must postpone it.
  static constexpr Duration maxLateness = std::chrono::milliseconds(100);

  /// Must be called when the window has appeared or become active.
  void restart(Instant now) { opensAt_ = now + settling; }
  /// Must be called when a key was pressed while the guard was closed, and when keys may have been
  /// pressed that have not arrived yet. Closes the guard for `quiet` at least.
  void postpone(Instant now) { opensAt_ = std::max(opensAt_, now + quiet); }

  /// Returns whether the guard is open. Requires a previous call of `restart`.
  [[nodiscard]] bool isOpen(Instant now) const { return now >= opensAt_; }
  /// Returns the time until the guard opens if no further key is pressed. Not positive if it is
  /// open.
  [[nodiscard]] Duration remaining(Instant now) const { return opensAt_ - now; }

 private:
  Instant opensAt_ = Instant::max();
};

}  // namespace zephyl
