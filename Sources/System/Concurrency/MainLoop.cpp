#include "System/Concurrency/MainLoop.hpp"

#include <cassert>
#include <memory>

#include "System/Concurrency/NoChildWaits.hpp"
#include "System/Concurrency/TaskFailure.hpp"
#include "System/Concurrency/Weakly.hpp"
#include "System/Files/Log.hpp"

namespace zephyl {

namespace {

/// A timer whose task runs on the main thread. Owns the task, so that pending posts hold it weakly.
class LoopTimer final : public Timer::Registration {
 public:
  LoopTimer(std::shared_ptr<Task> task, Timer timer)
      : task_(std::move(task)), timer_(std::move(timer)) {}

 private:
  const std::shared_ptr<Task> task_;
  const Timer timer_;
};

double seconds(Duration time) {
  return std::chrono::duration<double>(time).count();
}

}  // namespace

MainLoop::MainLoop(std::function<Instant()> now)
    : thread_(std::this_thread::get_id()), watch_(std::move(now)) {}

void MainLoop::async(Task task) {
  const std::type_info& type = task.target_type();
  enqueue({std::move(task), &type});
}

void MainLoop::enqueue(Entry entry) {
  std::optional<TaskWatch::Overrun> overrun;
  {
    const std::scoped_lock lock(mutex_);
    if (closed_) return;
    tasks_.push_back(std::move(entry));
    overrun = watch_.check();
  }
  wake_.notify_one();
  if (overrun) {
    log("the main thread is blocked: it has been running one task for {:.1f} s: "
        "{}",
        seconds(overrun->time), overrun->task);
  }
}

/// Returns a function that posts the task. The posted task does nothing if its timer was destroyed
/// meanwhile.
Task MainLoop::posting(const std::shared_ptr<Task>& task) {
  const auto run = weakly(task, [](const Task& due) { due(); });
  return [this, run, &type = task->target_type()] { enqueue({run, &type}); };
}

Timer MainLoop::after(Clock& clock, Duration delay, Task task) {
  auto owned = std::make_shared<Task>(std::move(task));
  Timer timer = clock.after(delay, posting(owned));
  return Timer(std::make_unique<LoopTimer>(std::move(owned), std::move(timer)));
}

Timer MainLoop::every(Clock& clock, Duration interval, Task task) {
  auto owned = std::make_shared<Task>(std::move(task));
  Timer timer = clock.every(interval, posting(owned));
  return Timer(std::make_unique<LoopTimer>(std::move(owned), std::move(timer)));
}

void MainLoop::run() {
  const NoChildWaits rule;
  std::unique_lock lock(mutex_);
  while (!quitting_) {
    wake_.wait(lock, [this] { return quitting_ || !tasks_.empty(); });
    while (!quitting_ && !tasks_.empty()) runNext(lock);
  }
}

void MainLoop::runNext(std::unique_lock<std::mutex>& lock) {
  Entry next = std::move(tasks_.front());
  tasks_.pop_front();
  watch_.begin(*next.type);
  lock.unlock();
  taskFailure::guard("main", next.task);
  next.task = nullptr;
  lock.lock();
  const auto overrun = watch_.end();
  if (!overrun) return;
  lock.unlock();
  log("the main thread was blocked by one task for {:.1f} s: {}", seconds(overrun->time),
      overrun->task);
  lock.lock();
}

void MainLoop::runPending() {
  std::unique_lock lock(mutex_);
  for (std::size_t count = tasks_.size(); count > 0 && !tasks_.empty(); --count) {
    Task task = std::move(tasks_.front().task);
    tasks_.pop_front();
    lock.unlock();
    task();
    task = nullptr;
    lock.lock();
  }
}

bool MainLoop::waitForTask(Duration limit) {
  std::unique_lock lock(mutex_);
  return wake_.wait_for(lock, limit, [this] { return !tasks_.empty(); });
}

void MainLoop::quit() {
  {
    const std::scoped_lock lock(mutex_);
    quitting_ = true;
  }
  wake_.notify_all();
}

void MainLoop::close() {
  std::deque<Entry> dropped;  // destroyed without the lock, because captures may call back
  {
    const std::scoped_lock lock(mutex_);
    closed_ = true;
    dropped.swap(tasks_);
  }
  visited_.notify_all();
}

bool MainLoop::runAndWait(const Task& work, const std::stop_token& stop) {
  assert(!isCurrent() && "sync from the main thread never returns");
  const auto visit = std::make_shared<Visit>();
  const auto perform = [this, visit, &work] {
    {
      const std::scoped_lock lock(mutex_);
      if (visit->progress == Progress::abandoned) return;
      visit->progress = Progress::running;
    }
    const auto conclude = [&](Progress progress) {
      {
        const std::scoped_lock lock(mutex_);
        visit->progress = progress;
      }
      visited_.notify_all();
    };
    try {
      work();
    } catch (...) {
      conclude(Progress::abandoned);
      throw;
    }
    conclude(Progress::done);
  };

  const std::stop_callback wakeUp(stop, [this] {
    { const std::scoped_lock lock(mutex_); }  // orders the request before or after a waiter's check
    visited_.notify_all();
  });
  const auto ending = [&] { return closed_ || stop.stop_requested(); };
  std::unique_lock lock(mutex_);
  if (ending()) return false;
  tasks_.push_back({perform, &work.target_type()});
  lock.unlock();
  wake_.notify_one();  // without the lock, which the main thread needs next
  lock.lock();
  visited_.wait(lock, [&] {
    return visit->progress == Progress::done || visit->progress == Progress::abandoned ||
           (ending() && visit->progress == Progress::pending);
  });
  if (visit->progress == Progress::done) return true;
  visit->progress = Progress::abandoned;
  return false;
}

}  // namespace zephyl
