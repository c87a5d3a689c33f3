#include "System/Concurrency/ThreadPool.hpp"

#include <algorithm>
#include <exception>
#include <utility>

#include <pthread.h>

#include "System/Concurrency/NoChildWaits.hpp"
#include "System/Concurrency/TaskFailure.hpp"
#include "System/Files/Log.hpp"

namespace zephyl {

namespace {
constexpr std::chrono::milliseconds idleTimeout{500};
}

ThreadPool::ThreadPool() {
  threads_.emplace_back([this] { work(Kind::permanent); });
}

ThreadPool::~ThreadPool() {
  {
    const std::scoped_lock lock(mutex_);
    closing_ = true;
  }
  wake_.notify_all();
  for (auto& thread : threads_) thread.join();
}

void ThreadPool::submit(Task task) {
  bool failed = false;
  {
    const std::scoped_lock lock(mutex_);
    tasks_.push_back(std::move(task));
    if (!closing_) joinEnded();
    if (closing_ || idle_ >= tasks_.size() || threads_.size() == maxThreads) {
      wake_.notify_one();
    } else if (startThread()) {
      shortage_ = false;
    } else {
      failed = !std::exchange(shortage_, true);
      wake_.notify_one();
    }
  }
  if (failed) log("could not start another thread: continuing with fewer");
}

/// The caller holds `mutex_`.
bool ThreadPool::startThread() {
  try {
    threads_.emplace_back([this] { work(Kind::temporary); });
    return true;
  } catch (const std::exception&) {  // no thread, or no memory for one
    return false;
  }
}

void ThreadPool::waitUntilIdle() {
  std::unique_lock lock(mutex_);
  finished_.wait(lock, [this] { return running_ == 0 && tasks_.empty(); });
}

std::size_t ThreadPool::threadCount() const {
  const std::scoped_lock lock(mutex_);
  return threads_.size() - ended_.size();
}

/// Returns whether a task is pending. If false, the thread must end.
bool ThreadPool::waitForTask(std::unique_lock<std::mutex>& lock, Kind kind) {
  const auto awaited = [this] { return closing_ || !tasks_.empty(); };
  ++idle_;
  if (kind == Kind::permanent) {
    wake_.wait(lock, awaited);
  } else {
    wake_.wait_for(lock, idleTimeout, awaited);
  }
  --idle_;
  return !tasks_.empty();
}

void ThreadPool::work(Kind kind) {
  pthread_setname_np(pthread_self(), "queue");
  const NoChildWaits rule;
  std::unique_lock lock(mutex_);
  while (waitForTask(lock, kind)) {
    Task task = std::move(tasks_.front());
    tasks_.pop_front();
    ++running_;
    lock.unlock();
    taskFailure::guard("queue", task);
    task = nullptr;
    lock.lock();
    if (--running_ == 0 && tasks_.empty()) finished_.notify_all();
  }
  ended_.push_back(std::this_thread::get_id());
}

void ThreadPool::joinEnded() {
  for (const auto id : ended_) {
    const auto thread = std::ranges::find(threads_, id, &std::thread::get_id);
    thread->join();
    threads_.erase(thread);
  }
  ended_.clear();
}

}  // namespace zephyl
