#include "Support/ManualClock.hpp"

#include <algorithm>

namespace zephyl::test {

class ManualClock::Registration final : public Timer::Registration {
 public:
  Registration(ManualClock& clock, std::uint64_t id) : clock_(clock), id_(id) {}
  ~Registration() override { clock_.cancel(id_); }
  Registration(const Registration&) = delete;
  Registration& operator=(const Registration&) = delete;

 private:
  ManualClock& clock_;
  const std::uint64_t id_;
};

Instant ManualClock::now() const {
  const std::scoped_lock lock(mutex_);
  return now_;
}

std::chrono::system_clock::time_point ManualClock::calendarNow() const {
  using namespace std::chrono;
  const std::scoped_lock lock(mutex_);
  return system_clock::time_point(sys_days(year(2030) / 1 / 2)) +
         duration_cast<system_clock::duration>(now_.time_since_epoch() + calendarOffset_);
}

void ManualClock::setCalendar(Duration offset) {
  const std::scoped_lock lock(mutex_);
  calendarOffset_ = offset;
}

Timer ManualClock::after(Duration delay, Task task) {
  return Timer(std::make_unique<Registration>(*this, add(delay, {}, std::move(task))));
}

Timer ManualClock::every(Duration interval, Task task) {
  return Timer(std::make_unique<Registration>(*this, add(interval, interval, std::move(task))));
}

void ManualClock::afterDetached(Duration delay, Task task) {
  add(delay, {}, std::move(task));
}

void ManualClock::advance(Duration step, const Task& settle) {
  const Instant limit = now() + step;
  settle();
  while (Task task = takeDue(limit)) {
    task();
    settle();
  }
  const std::scoped_lock lock(mutex_);
  now_ = limit;
}

std::size_t ManualClock::pendingTimers() const {
  const std::scoped_lock lock(mutex_);
  return alarms_.size();
}

std::uint64_t ManualClock::add(Duration delay, Duration interval, Task task) {
  const std::scoped_lock lock(mutex_);
  const std::uint64_t id = ++lastId_;
  alarms_.emplace(Key{now_ + delay, id}, Alarm{std::move(task), interval});
  return id;
}

void ManualClock::cancel(std::uint64_t id) {
  const std::scoped_lock lock(mutex_);
  std::erase_if(alarms_, [id](const auto& entry) { return entry.first.second == id; });
}

Task ManualClock::takeDue(Instant limit) {
  const std::scoped_lock lock(mutex_);
  if (alarms_.empty() || alarms_.begin()->first.first > limit) return {};
  auto due = alarms_.extract(alarms_.begin());
  now_ = std::max(now_, due.key().first);
  Task task = due.mapped().task;
  if (due.mapped().interval > Duration::zero()) {
    due.key().first += due.mapped().interval;
    alarms_.insert(std::move(due));
  }
  return task;
}

}  // namespace zephyl::test
