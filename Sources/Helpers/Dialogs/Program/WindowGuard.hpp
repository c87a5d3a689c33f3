#pragma once

#include <optional>

#include "Desktop/InputGuard.hpp"
#include "System/Concurrency/Clock.hpp"

namespace zephyl {

/// Decides when a window accepts input. No window accepts input before it is on screen. A shielded
/// window accepts it only while it is active and its `InputGuard` is open. A value. The caller
/// supplies the time.
class WindowGuard {
 public:
  enum class Policy {
    never,           ///< the window is never shielded
    afterReturning,  ///< the window is shielded after it was inactive for the first time
    always,
  };

  explicit WindowGuard(Policy policy) : policy_(policy) {}

  /// Must be called when the window is on screen.
  void exposed(Instant now);
  /// Must be called when the window becomes active or inactive.
  void activationChanged(bool active, Instant now);
  /// Must be called when a key was pressed while the window did not accept input.
  void keyIgnored(Instant now);
  /// Must be called soon after `dueAt`. If it is called late, keys from that time may still arrive,
  /// so the guard stays closed.
  void due(Instant now);

  /// Returns whether the window accepts keys and clicks. Changes only in the functions above.
  [[nodiscard]] bool accepts() const { return accepts_; }
  /// Returns whether the window may be closed.
  [[nodiscard]] bool isOpen(Instant now) const;
  [[nodiscard]] bool isActive() const { return active_; }
  /// Returns when to call `due`, or nullopt if the guard is open or the window is not on screen.
  [[nodiscard]] std::optional<Instant> dueAt() const { return dueAt_; }

 private:
  void update(Instant now);

  Policy policy_;
  InputGuard guard_;
  std::optional<Instant> dueAt_;
  bool exposed_ = false;
  bool active_ = false;
  bool accepts_ = false;
};

}  // namespace zephyl
