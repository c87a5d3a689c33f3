#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

#include "System/Concurrency/Clock.hpp"

namespace zephyl {

/// The threads that run the tasks of the serial queues. One lives as long as the pool. Up to
/// `maxThreads` are started while tasks are pending and no thread is free. These end when they are
/// idle for a while. If no thread can be started, logs one line, and the existing threads do the
/// work.
class ThreadPool {
 public:
  static constexpr std::size_t maxThreads = 4;

  /// Starts the first thread. Throws `std::system_error` if that fails.
  ThreadPool();
  /// Runs all submitted tasks, then joins the threads.
  ~ThreadPool();
  ThreadPool(const ThreadPool&) = delete;
  ThreadPool& operator=(const ThreadPool&) = delete;

  /// Runs `task` on one of the threads. Callable from any thread.
  void submit(Task task);

  /// Waits until no task is pending or running.
  void waitUntilIdle();

  [[nodiscard]] std::size_t threadCount() const;

 private:
  enum class Kind { permanent, temporary };
  void work(Kind kind);
  bool waitForTask(std::unique_lock<std::mutex>& lock, Kind kind);
  [[nodiscard]] bool startThread();
  void joinEnded();

  mutable std::mutex mutex_;
  std::condition_variable wake_;
  std::deque<Task> tasks_;
  std::vector<std::thread> threads_;
  std::vector<std::thread::id> ended_;  // have left work(), not joined yet
  std::condition_variable finished_;
  std::size_t idle_ = 0;
  std::size_t running_ = 0;
  bool closing_ = false;
  bool shortage_ = false;  // the last attempt to start a thread failed
};

/// Waits at its destruction until the pool is idle. Objects that are declared before it, such as
/// the clock, thereby outlive all tasks that were submitted until then.
class ThreadPoolDrain {
 public:
  explicit ThreadPoolDrain(ThreadPool& pool) : pool_(pool) {}
  ~ThreadPoolDrain() { pool_.waitUntilIdle(); }
  ThreadPoolDrain(const ThreadPoolDrain&) = delete;
  ThreadPoolDrain& operator=(const ThreadPoolDrain&) = delete;

 private:
  ThreadPool& pool_;
};

}  // namespace zephyl
