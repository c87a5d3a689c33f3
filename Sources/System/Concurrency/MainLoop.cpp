#include "System/Concurrency/MainLoop.hpp"

#include <cassert>
#include <memory>

#include "System/Concurrency/NoChildWaits.hpp"
#include "System/Concurrency/TaskFailure.hpp"
#include "System/Concurrency/Weakly.hpp"

namespace zephyl {

namespace {

/// A timer whose task runs on the main thread. Owns the task; what is on its way there does not.
class LoopTimer final : public Timer::Registration {
 public:
  LoopTimer(std::shared_ptr<Task> task, Timer timer)
      : task_(std::move(task)), timer_(std::move(timer)) {}

 private:
  const std::shared_ptr<Task> task_;
  const Timer timer_;
};

/// Posts the task while its timer exists, and runs it unless the timer has gone meanwhile.
Task posting(MainLoop& loop, const std::shared_ptr<Task>& task) {
  const auto run = weakly(task, [](const Task& due) { due(); });
  return [&loop, run] { loop.async(run); };
}

}  // namespace

MainLoop::MainLoop() : thread_(std::this_thread::get_id()) {}

void MainLoop::async(Task task) {
  {
    const std::scoped_lock lock(mutex_);
    if (closed_) return;
    tasks_.push_back(std::move(task));
  }
  wake_.notify_one();
}

Timer MainLoop::after(Clock& clock, Duration delay, Task task) {
  auto owned = std::make_shared<Task>(std::move(task));
  Timer timer = clock.after(delay, posting(*this, owned));
  return Timer(std::make_unique<LoopTimer>(std::move(owned), std::move(timer)));
}

Timer MainLoop::every(Clock& clock, Duration interval, Task task) {
  auto owned = std::make_shared<Task>(std::move(task));
  Timer timer = clock.every(interval, posting(*this, owned));
  return Timer(std::make_unique<LoopTimer>(std::move(owned), std::move(timer)));
}

void MainLoop::run() {
  const NoChildWaits rule;
  std::unique_lock lock(mutex_);
  while (!quitting_) {
    wake_.wait(lock, [this] { return quitting_ || !tasks_.empty(); });
    while (!quitting_ && !tasks_.empty()) {
      Task task = std::move(tasks_.front());
      tasks_.pop_front();
      lock.unlock();
      taskFailure::guard("main", task);
      task = nullptr;
      lock.lock();
    }
  }
}

void MainLoop::runPending() {
  std::unique_lock lock(mutex_);
  for (std::size_t count = tasks_.size(); count > 0 && !tasks_.empty(); --count) {
    Task task = std::move(tasks_.front());
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
  std::deque<Task> dropped;  // destroyed without the lock: their captures may call back here
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
    { const std::scoped_lock lock(mutex_); }  // a waiter has seen the request, or waits already
    visited_.notify_all();
  });
  const auto ending = [&] { return closed_ || stop.stop_requested(); };
  std::unique_lock lock(mutex_);
  if (ending()) return false;
  tasks_.emplace_back(perform);
  lock.unlock();
  wake_.notify_one();  // without the lock, for which the main thread would have to wait again
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
