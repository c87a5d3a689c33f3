#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

namespace zephyl {

/// The lines of a log from one position to its end.
struct LogTail {
  std::uint64_t skipped = 0;  ///< lines after the position that the log no longer holds
  std::vector<std::string> lines;
  std::uint64_t end = 0;  ///< the position after the last line
};

/// The newest lines of a log: at most `maxLines` and at most `maxBytes`. The oldest lines are
/// dropped to make room. A line larger than `maxBytes` is not kept. A plain value without
/// synchronization: its owner must use it from one thread.
class LogRing {
 public:
  static constexpr std::size_t maxLines = 200;
  static constexpr std::size_t maxBytes = 256 * 1024;

  void append(std::string line);
  [[nodiscard]] std::vector<std::string> lines() const { return {lines_.begin(), lines_.end()}; }
  [[nodiscard]] bool empty() const { return lines_.empty(); }
  /// Returns the lines after `position`, which counts the lines that were appended before it. A
  /// position beyond the end belongs to another log and counts as 0.
  [[nodiscard]] LogTail since(std::uint64_t position) const;

 private:
  std::deque<std::string> lines_;
  std::uint64_t end_ = 0;  // the number of lines ever appended
  std::size_t bytes_ = 0;
};

}  // namespace zephyl
