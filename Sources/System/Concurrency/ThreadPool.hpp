#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

#include "System/Concurrency/Clock.hpp"

namespace zephyl {

/// The few threads behind the serial queues. One lives as long as the pool. Another is started when
/// there is work and none is free, up to `maxThreads`, and ends when it has had nothing to do for a
/// while. When the system has no thread to give, one line is logged and the work waits for those
/// there are.
class ThreadPool {
 public:
  static constexpr std::size_t maxThreads = 4;

  /// Starts the first thread; throws `std::system_error` when that fails.
  ThreadPool();
  /// Finishes what was submitted, then joins.
  ~ThreadPool();
  ThreadPool(const ThreadPool&) = delete;
  ThreadPool& operator=(const ThreadPool&) = delete;

  /// Runs `task` on one of the threads. From any thread.
  void submit(Task task);

  /// Waits until nothing is pending and nothing runs: for tests, which have set something in
  /// motion and want to see where it ends.
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
  std::vector<std::thread::id> ended_;  // have left work() and wait to be joined
  std::condition_variable finished_;
  std::size_t idle_ = 0;
  std::size_t running_ = 0;
  bool closing_ = false;
  bool shortage_ = false;  // the last attempt to start a thread has failed
};

}  // namespace zephyl
