#pragma once

#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "System/Concurrency/Clock.hpp"
#include "System/Data/LogRing.hpp"

namespace zephyl {

/// A queue of lines for the main thread. It keeps only the newest lines if they are added faster
/// than they are removed. Callable from any thread.
class LineInbox {
 public:
  /// Calls `wake`, on the thread that adds a line, when the queue was empty before. `wake` must be
  /// short and must not add lines.
  explicit LineInbox(Task wake) : wake_(std::move(wake)) {}

  void add(std::string line) {
    const std::scoped_lock lock(mutex_);
    const bool isFirst = lines_.empty();
    lines_.append(std::move(line));
    if (isFirst && wake_) wake_();
  }

  std::vector<std::string> drain() {
    const std::scoped_lock lock(mutex_);
    return std::exchange(lines_, {}).lines();
  }

  /// After it returns, `wake` is not called any more.
  void close() {
    const std::scoped_lock lock(mutex_);
    wake_ = nullptr;
  }

 private:
  std::mutex mutex_;
  Task wake_;
  LogRing lines_;
};

}  // namespace zephyl
