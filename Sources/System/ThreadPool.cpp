#include "System/ThreadPool.hpp"

#include <algorithm>

#include <pthread.h>

namespace zephyl {

namespace {
constexpr std::chrono::milliseconds idleLimit{500};
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
  const std::scoped_lock lock(mutex_);
  tasks_.push_back(std::move(task));
  joinEnded();
  if (closing_ || idle_ >= tasks_.size() || threads_.size() == maxThreads) {
    wake_.notify_one();
  } else {
    threads_.emplace_back([this] { work(); });
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

void ThreadPool::work() {
  pthread_setname_np(pthread_self(), "queue");
  std::unique_lock lock(mutex_);
  for (;;) {
    ++idle_;
    const bool woken =
        wake_.wait_for(lock, idleLimit, [this] { return closing_ || !tasks_.empty(); });
    --idle_;
    if (!woken || tasks_.empty()) break;
    Task task = std::move(tasks_.front());
    tasks_.pop_front();
    ++running_;
    lock.unlock();
    task();
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
