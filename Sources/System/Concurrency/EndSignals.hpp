#pragma once

#include <functional>
#include <memory>
#include <span>

namespace zephyl {

class Reactor;

/// Receives the signals that ask this process to end, without losing one.
///
/// `block` must be called first in `main`. From then on the signals stay pending until an
/// EndSignals reads them, before it is constructed and after it is destroyed. A program that this
/// process executes inherits the mask and the pending signals, so a signal that arrives during the
/// exec ends the new program. Children must reset their mask.
class EndSignals {
 public:
  /// Blocks exactly `signals` for the calling thread and the threads that it starts. Must be called
  /// while no other thread runs.
  static void block(std::span<const int> signals);
  /// Returns whether one of the blocked signals is pending. Callable from any thread.
  static bool arePending();

  /// Calls `onEnd` on the reactor's thread for each of `signals` that arrives or is pending.
  /// `reactor` must outlive this object.
  EndSignals(Reactor& reactor, std::span<const int> signals, std::function<void()> onEnd);
  ~EndSignals();
  EndSignals(const EndSignals&) = delete;
  EndSignals& operator=(const EndSignals&) = delete;

 private:
  class Watch;
  std::shared_ptr<Watch> watch_;
  Reactor& reactor_;
};

}  // namespace zephyl
