#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

#include "System/Clock.hpp"

namespace zephyl {

/// The few threads behind the serial queues. One is started when there is work and none is
/// free, up to `maxThreads`; a thread that has had nothing to do for a while ends, so an idle
/// process has none of them.
class ThreadPool {
 public:
  static constexpr std::size_t maxThreads = 4;

  ThreadPool() = default;
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
  void work();
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
};

}  // namespace zephyl
