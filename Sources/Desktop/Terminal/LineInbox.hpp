#pragma once

#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "System/Concurrency/Clock.hpp"
#include "System/Data/LogRing.hpp"

namespace zephyl {

/// Lines on their way to the main thread: the newest, should more come than are taken. From any
/// thread.
class LineInbox {
 public:
  /// `wake` is called, on whatever thread, when there are lines again. It must be short and must
  /// not put any.
  explicit LineInbox(Task wake) : wake_(std::move(wake)) {}

  void put(std::string line) {
    const std::scoped_lock lock(mutex_);
    const bool isFirst = lines_.empty();
    lines_.append(std::move(line));
    if (isFirst && wake_) wake_();
  }

  std::vector<std::string> take() {
    const std::scoped_lock lock(mutex_);
    return std::exchange(lines_, {}).lines();
  }

  /// `wake` is not called any more.
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
