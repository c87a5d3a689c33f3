#pragma once

#include <functional>
#include <memory>
#include <span>

namespace zephyl {

class Reactor;

/// Receives the signals that ask this process to end, without ever losing one.
///
/// `block` is the first thing that `main` does. From then on the signals stay pending until an
/// EndSignals reads them, before there is one and after it has gone. A program that this process
/// executes inherits both the mask and what is pending, so that a signal that arrives while the
/// process becomes another program ends that one. Children must reset their mask.
class EndSignals {
 public:
  /// Blocks `signals` for the calling thread and the threads that it starts. No other signal is
  /// blocked afterwards. Called when no other thread runs.
  static void block(std::span<const int> signals);
  /// Returns whether one of the blocked signals is pending. Any thread.
  static bool arePending();

  /// Calls `onEnd` on the reactor's thread for each of `signals` that arrives or is pending.
  /// The reactor outlives this.
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
