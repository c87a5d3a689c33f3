#pragma once

namespace zephyl {

/// Declares that the current thread must not wait for the end of a child as long as an object of
/// this class exists on it: the thread has other work to do, and a child may take long to end.
/// Waits are asserted not to happen there. Objects nest. Destroyed on the thread that made it.
class NoChildWaits {
 public:
  NoChildWaits() { ++count_; }
  ~NoChildWaits() { --count_; }
  NoChildWaits(const NoChildWaits&) = delete;
  NoChildWaits& operator=(const NoChildWaits&) = delete;

  /// Whether the current thread may wait for the end of a child.
  [[nodiscard]] static bool allowWaiting() { return count_ == 0; }

 private:
  static inline thread_local int count_ = 0;
};

}  // namespace zephyl
