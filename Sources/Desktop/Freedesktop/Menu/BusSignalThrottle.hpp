#pragma once

#include <cstddef>
#include <deque>
#include <functional>
#include <vector>

#include "System/Concurrency/Clock.hpp"

namespace zephyl {

/// Holds back signals about what is shown, so that a tray whose state changes a thousand times a
/// second costs its hosts next to nothing: at most `perWindow` signals leave in any `window`, and
/// a source that waits reports only its last state. Sources take turns, so none starves.
///
/// One thread only.
class BusSignalThrottle {
 public:
  static constexpr std::size_t perWindow = 4;
  static constexpr Duration window = std::chrono::seconds(1);

  /// Something that sends signals.
  struct Source {
    std::size_t most = 1;  ///< signals that it sends at a time, at most, as `send` counts them
    Duration interval{};   ///< least time between two times
    /// Sends what there is to say now; returns how many signals that were.
    std::function<std::size_t()> send;
  };
  /// Runs a task on the pacer's thread after a delay.
  using Later = std::function<Timer(Duration, Task)>;

  BusSignalThrottle(Clock& clock, Later later) : clock_(clock), later_(std::move(later)) {}
  BusSignalThrottle(const BusSignalThrottle&) = delete;
  BusSignalThrottle& operator=(const BusSignalThrottle&) = delete;

  /// Returns the source's number.
  std::size_t add(Source source);
  /// The source has something to say: it sends now, or when its turn comes.
  void request(std::size_t source);
  /// The source sends now, whatever the limits; what it sends counts. For what a user waits for.
  void sendNow(std::size_t source);

 private:
  struct Waiting {
    Source source;
    Instant earliest{};
    bool requested = false;
  };

  void sendWhatMay();
  void send(Waiting& waiting, Instant now);
  /// When `most` more signals may leave.
  [[nodiscard]] Instant roomFor(std::size_t most) const;

  Clock& clock_;
  Later later_;
  std::vector<Waiting> sources_;
  std::deque<std::size_t> queue_;
  std::deque<Instant> sent_;  // the last `perWindow` signals
  Timer timer_;
};

}  // namespace zephyl
