#pragma once

#include <cstddef>
#include <deque>
#include <functional>
#include <vector>

#include "System/Concurrency/Clock.hpp"

namespace zephyl {

/// Limits the rate of signals about the shown state, so that a state that changes a thousand times
/// a second causes little work in the hosts. At most `perWindow` signals are sent in any `window`,
/// and a waiting source reports only its last state. Sources take turns.
///
/// Not thread-safe.
class BusSignalThrottle {
 public:
  static constexpr std::size_t perWindow = 4;
  static constexpr Duration window = std::chrono::seconds(1);

  /// A sender of signals.
  struct Source {
    std::size_t maxSignals = 1;  ///< the most signals of one call of `send`
    Duration interval{};         ///< the minimum time between two calls
    /// Sends the current state. Returns the number of sent signals.
    std::function<std::size_t()> send;
  };
  /// Runs a task on the throttle's thread after a delay.
  using Later = std::function<Timer(Duration, Task)>;

  BusSignalThrottle(Clock& clock, Later later) : clock_(clock), later_(std::move(later)) {}
  BusSignalThrottle(const BusSignalThrottle&) = delete;
  BusSignalThrottle& operator=(const BusSignalThrottle&) = delete;

  /// Adds a source and returns its number.
  std::size_t add(Source source);
  /// Requests that the source sends, now or when its turn comes.
  void request(std::size_t source);
  /// Makes the source send now regardless of the limits. Its signals count. For states that a user
  /// is waiting for.
  void sendNow(std::size_t source);

 private:
  struct Waiting {
    Source source;
    Instant earliest{};
    bool requested = false;
  };

  void sendPermitted();
  void send(Waiting& waiting, Instant now);
  /// Returns the time at which `count` more signals may be sent.
  [[nodiscard]] Instant earliestFor(std::size_t count) const;

  Clock& clock_;
  Later later_;
  std::vector<Waiting> sources_;
  std::deque<std::size_t> queue_;
  std::deque<Instant> sent_;  // the last `perWindow` signals
  Timer timer_;
};

}  // namespace zephyl
