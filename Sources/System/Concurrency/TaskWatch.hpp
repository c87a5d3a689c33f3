#pragma once

#include <functional>
#include <optional>
#include <string>
#include <typeinfo>

#include "System/Concurrency/Clock.hpp"

namespace zephyl {

/// Measures how long the tasks of a loop run, and reports each task that exceeds the limit once.
///
/// Not thread-safe: the loop guards it with its own mutex.
class TaskWatch {
 public:
  static constexpr Duration limit = std::chrono::seconds(2);

  /// A task that exceeds the limit.
  struct Overrun {
    /// The type of the task. The type of a lambda contains the name of the function that made it.
    std::string task;
    Duration time;  ///< since the task began
  };

  /// `now` must be a clock that never goes back.
  explicit TaskWatch(std::function<Instant()> now = std::chrono::steady_clock::now)
      : now_(std::move(now)) {}

  /// Records that a task of the type `task` begins.
  void begin(const std::type_info& task);
  /// Records that the task has ended. Returns its overrun unless `check` has returned it.
  std::optional<Overrun> end();
  /// Returns the overrun of the current task, but only once for each task.
  std::optional<Overrun> check();

 private:
  const std::function<Instant()> now_;
  const std::type_info* task_ = nullptr;  // null while no task runs
  Instant began_;
  bool reported_ = false;
};

}  // namespace zephyl
