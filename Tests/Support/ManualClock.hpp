#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>

#include "System/Concurrency/Clock.hpp"

namespace zephyl::test {

/// A clock that only the test advances. Due timers fire on the thread that advances it, in the
/// order of their deadlines.
class ManualClock final : public Clock {
 public:
  [[nodiscard]] Instant now() const override;
  [[nodiscard]] std::chrono::system_clock::time_point calendarNow() const override;
  [[nodiscard]] Timer after(Duration delay, Task task) override;
  [[nodiscard]] Timer every(Duration interval, Task task) override;
  void afterDetached(Duration delay, Task task) override;

  /// Advances the clock by `step`. Calls `settle` after each timer, so that the effects of the
  /// timer, including new timers, happen before time advances further.
  void advance(
      Duration step, const Task& settle = [] {});

  /// Changes the calendar time by `offset`, as a user can. Does not affect timers.
  void setCalendar(Duration offset);

  /// Returns the number of timers that are set.
  [[nodiscard]] std::size_t pendingTimers() const;

 private:
  struct Alarm {
    Task task;
    Duration interval{};  // zero: once
  };
  using Key = std::pair<Instant, std::uint64_t>;
  class Registration;

  std::uint64_t add(Duration delay, Duration interval, Task task);
  void cancel(std::uint64_t id);
  Task takeDue(Instant limit);

  mutable std::mutex mutex_;
  Instant now_{std::chrono::hours(1)};
  Duration calendarOffset_{};
  std::uint64_t lastId_ = 0;
  std::map<Key, Alarm> alarms_;
};

}  // namespace zephyl::test
