#pragma once

#include <chrono>
#include <functional>
#include <thread>

namespace zephyl::test {

/// Polls `condition` until it holds. Returns false if it does not hold within `limit`.
inline bool eventually(const std::function<bool()>& condition,
                       std::chrono::milliseconds limit = std::chrono::seconds(10)) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

}  // namespace zephyl::test
