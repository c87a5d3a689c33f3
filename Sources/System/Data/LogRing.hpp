#pragma once

#include <cstddef>
#include <deque>
#include <string>
#include <vector>

namespace zephyl {

/// The newest lines of a log: at most `maxLines` and at most `maxBytes`. The oldest make room; a
/// line that is too large for the whole ring is not kept. A plain value; its owner keeps it to one
/// thread.
class LogRing {
 public:
  static constexpr std::size_t maxLines = 200;
  static constexpr std::size_t maxBytes = 256 * 1024;

  void append(std::string line);
  [[nodiscard]] std::vector<std::string> lines() const { return {lines_.begin(), lines_.end()}; }
  [[nodiscard]] bool empty() const { return lines_.empty(); }

 private:
  std::deque<std::string> lines_;
  std::size_t bytes_ = 0;
};

}  // namespace zephyl
