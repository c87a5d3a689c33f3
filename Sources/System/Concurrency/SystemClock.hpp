#pragma once

#include "System/Concurrency/Clock.hpp"

namespace zephyl {

class Reactor;

/// The real clock. Timers fire on the reactor's thread. Timers that are still set when the reactor
/// is destroyed never fire.
class SystemClock final : public Clock {
 public:
  explicit SystemClock(Reactor& reactor) : reactor_(reactor) {}

  [[nodiscard]] Instant now() const override;
  [[nodiscard]] std::chrono::system_clock::time_point calendarNow() const override;
  [[nodiscard]] Timer after(Duration delay, Task task) override;
  [[nodiscard]] Timer every(Duration interval, Task task) override;
  void afterDetached(Duration delay, Task task) override;

 private:
  Reactor& reactor_;
};

}  // namespace zephyl
