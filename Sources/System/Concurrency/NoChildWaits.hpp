#pragma once

namespace zephyl {

/// Declares that the current thread must not wait for the end of a child while an object of this
/// class exists on it, because a child may take long to end. Such waits fail an assertion. Objects
/// nest. An object must be destroyed on the thread that made it.
class NoChildWaits {
 public:
  NoChildWaits() { ++count_; }
  ~NoChildWaits() { --count_; }
  NoChildWaits(const NoChildWaits&) = delete;
  NoChildWaits& operator=(const NoChildWaits&) = delete;

  /// Returns whether the current thread may wait for the end of a child.
  [[nodiscard]] static bool allowWaiting() { return count_ == 0; }

 private:
  static inline thread_local int count_ = 0;
};

}  // namespace zephyl
