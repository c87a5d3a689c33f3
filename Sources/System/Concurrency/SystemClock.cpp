#include "System/Concurrency/SystemClock.hpp"

#include <mutex>

#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>

#include "System/Concurrency/Reactor.hpp"

namespace zephyl {

namespace {

/// One timer, shared by the reactor's handlers and the handle that cancels it.
class Alarm : public std::enable_shared_from_this<Alarm> {
 public:
  Alarm(Reactor& reactor, Duration interval, bool repeats, Task task)
      : timer_(reactor.context(), interval),
        interval_(interval),
        repeats_(repeats),
        task_(std::move(task)) {}

  void start() {
    const std::scoped_lock lock(mutex_);
    wait();
  }

  void cancel() {
    const std::scoped_lock lock(mutex_);
    cancelled_ = true;
    timer_.cancel();
  }

 private:
  void wait() {
    timer_.async_wait([self = shared_from_this()](boost::system::error_code) { self->fire(); });
  }

  void fire() {
    {
      const std::scoped_lock lock(mutex_);
      if (cancelled_) return;
    }
    task_();
    if (!repeats_) return;
    const std::scoped_lock lock(mutex_);
    if (cancelled_) return;
    const auto next = timer_.expiry() + interval_;
    timer_.expires_at(std::max(next, std::chrono::steady_clock::now()));
    wait();
  }

  std::mutex mutex_;
  boost::asio::steady_timer timer_;
  const Duration interval_;
  const bool repeats_;
  const Task task_;
  bool cancelled_ = false;
};

class AlarmRegistration final : public Timer::Registration {
 public:
  explicit AlarmRegistration(std::shared_ptr<Alarm> alarm) : alarm_(std::move(alarm)) {}
  ~AlarmRegistration() override { alarm_->cancel(); }
  AlarmRegistration(const AlarmRegistration&) = delete;
  AlarmRegistration& operator=(const AlarmRegistration&) = delete;

 private:
  std::shared_ptr<Alarm> alarm_;
};

std::shared_ptr<Alarm> setAlarm(Reactor& reactor, Duration interval, bool repeats, Task task) {
  auto alarm = std::make_shared<Alarm>(reactor, interval, repeats, std::move(task));
  alarm->start();
  return alarm;
}

}  // namespace

Instant SystemClock::now() const {
  return std::chrono::steady_clock::now();
}

std::chrono::system_clock::time_point SystemClock::calendarNow() const {
  return std::chrono::system_clock::now();
}

Timer SystemClock::after(Duration delay, Task task) {
  return Timer(
      std::make_unique<AlarmRegistration>(setAlarm(reactor_, delay, false, std::move(task))));
}

Timer SystemClock::every(Duration interval, Task task) {
  return Timer(
      std::make_unique<AlarmRegistration>(setAlarm(reactor_, interval, true, std::move(task))));
}

void SystemClock::afterDetached(Duration delay, Task task) {
  setAlarm(reactor_, delay, false, std::move(task));
}

}  // namespace zephyl
