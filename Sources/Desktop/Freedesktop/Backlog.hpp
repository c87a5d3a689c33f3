#pragma once

#include <atomic>

#include "System/Concurrency/MainLoop.hpp"

namespace zephyl {

/// The tasks that the bus thread has posted to the main thread and that have not run yet. Bounds
/// them, so that a peer cannot fill the memory by calling while the main thread is busy.
///
/// Thread-safe. Outlives its tasks.
class Backlog {
 public:
  static constexpr int limit = 64;

  explicit Backlog(MainLoop& mainLoop) : mainLoop_(mainLoop) {}

  /// Whether the main thread is too far behind for `offer`. One log line reports the beginning.
  [[nodiscard]] bool isFull();
  /// Posts the task, unless the backlog is full.
  void offer(Task task);
  /// Posts the task in any case; for those whose number is bounded in another way.
  void post(Task task);

 private:
  MainLoop& mainLoop_;
  std::atomic<int> waiting_ = 0;
  std::atomic<bool> reported_ = false;
};

}  // namespace zephyl
