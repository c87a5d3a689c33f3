#pragma once

#include <chrono>
#include <cstddef>
#include <mutex>
#include <string>
#include <string_view>

namespace zephyl {

/// Writes lines to standard error with a bounded wait for its reader, which may be a paused pager,
/// a stopped terminal or a hanging journal.
///
/// If standard error accepts no bytes for `patience`, the line is dropped. Further lines are
/// dropped without waiting until one can be written again, preceded by a line that reports the
/// number of dropped ones. Uses the system's steady clock.
///
/// Callable from any thread. Lines do not interleave.
class StandardError {
 public:
  static constexpr std::chrono::milliseconds patience{100};

  /// Writes `line`, which must end with a line feed.
  void write(std::string_view line);

 private:
  enum class Outcome { written, failed, blocked };
  static Outcome writeWhole(std::string_view text, std::chrono::milliseconds limit,
                            std::size_t& written);
  bool writeMarker();

  std::mutex mutex_;
  std::size_t dropped_ = 0;  // since the last line that was written; guarded by mutex_
  bool withinLine_ = false;  // the last line was written in part; guarded by mutex_
};

}  // namespace zephyl
