#pragma once

#include <chrono>
#include <functional>
#include <memory>

namespace zephyl {

/// A unit of work. Must not throw.
using Task = std::function<void()>;

using Duration = std::chrono::nanoseconds;
using Instant = std::chrono::steady_clock::time_point;

/// A timer that has been set; destroying or resetting it cancels it. Cancelling does not wait
/// for a task that is already running.
class Timer {
 public:
  /// What a clock knows of one timer.
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

/// Where time comes from: monotonic now and timers, the calendar for what people read. The
/// program has one, made by `main`; tests own theirs and move it by hand.
///
/// Callable from any thread. Tasks run on the clock's own thread and must be short: they hand
/// their work to a queue.
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
  /// Runs `task` every `interval`, first one interval from now. A late tick is not made up for.
  [[nodiscard]] virtual Timer every(Duration interval, Task task) = 0;
  /// Like `after`, for work that nobody cancels; it must hold its owner weakly.
  virtual void afterDetached(Duration delay, Task task) = 0;
};

}  // namespace zephyl
