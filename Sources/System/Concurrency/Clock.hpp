#pragma once

#include <chrono>
#include <functional>
#include <memory>

namespace zephyl {

/// A unit of work. Must not throw.
using Task = std::function<void()>;

using Duration = std::chrono::nanoseconds;
using Instant = std::chrono::steady_clock::time_point;

/// A running timer. Destroying or cancelling it cancels the timer. Cancelling does not wait for a
/// task that is already running.
class Timer {
 public:
  /// A clock's state of one timer. Its destructor cancels the timer.
  class Registration {
   public:
    virtual ~Registration() = default;
    Registration() = default;
    Registration(const Registration&) = delete;
    Registration& operator=(const Registration&) = delete;
  };

  Timer() = default;
  explicit Timer(std::unique_ptr<Registration> registration)
      : registration_(std::move(registration)) {}

  void cancel() { registration_.reset(); }
  explicit operator bool() const { return registration_ != nullptr; }

 private:
  std::unique_ptr<Registration> registration_;
};

/// The source of time: a monotonic time, timers, and the calendar time for display. `main` makes
/// the only clock of the program. Tests make clocks that they set themselves.
///
/// Callable from any thread. Tasks run on the clock's own thread. They must be short and pass
/// longer work to a queue.
class Clock {
 public:
  virtual ~Clock() = default;
  Clock() = default;
  Clock(const Clock&) = delete;
  Clock& operator=(const Clock&) = delete;

  [[nodiscard]] virtual Instant now() const = 0;
  [[nodiscard]] virtual std::chrono::system_clock::time_point calendarNow() const = 0;

  /// Runs `task` once, `delay` from now.
  [[nodiscard]] virtual Timer after(Duration delay, Task task) = 0;
  /// Runs `task` every `interval`, first one interval from now. Missed ticks are not repeated.
  [[nodiscard]] virtual Timer every(Duration interval, Task task) = 0;
  /// Like `after`, but the task cannot be cancelled, so it must hold its owner weakly.
  virtual void afterDetached(Duration delay, Task task) = 0;
};

}  // namespace zephyl
