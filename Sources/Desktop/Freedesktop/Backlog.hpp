#pragma once

#include <atomic>

#include "System/Concurrency/MainLoop.hpp"

namespace zephyl {

/// The tasks that the bus thread has posted to the main thread and that have not run yet. Limits
/// their number, so that a peer cannot exhaust the memory with calls while the main thread is busy.
///
/// Thread-safe. Must outlive its tasks.
class Backlog {
 public:
  static constexpr int limit = 64;

  explicit Backlog(MainLoop& mainLoop) : mainLoop_(mainLoop) {}

  /// Returns whether too many tasks are waiting for `offer`. Logs one line when that begins.
  [[nodiscard]] bool isFull();
  /// Posts the task unless the backlog is full.
  void offer(Task task);
  /// Posts the task in any case. For tasks whose number is limited otherwise.
  void post(Task task);

 private:
  MainLoop& mainLoop_;
  std::atomic<int> waiting_ = 0;
  std::atomic<bool> reported_ = false;
};

}  // namespace zephyl
