#pragma once

#include <chrono>
#include <cstddef>
#include <mutex>
#include <string>
#include <string_view>

namespace zephyl {

/// Writes lines to standard error without ever waiting long for its reader: a paused pager, a
/// terminal whose output is stopped, a journal that hangs.
///
/// When standard error takes nothing for `patience` the line is dropped, and so are further ones,
/// without waiting, until one can be written again. That one is preceded by a line that says how
/// many were dropped. Time is the system's steady clock.
///
/// Callable from any thread; lines do not interleave.
class StandardError {
 public:
  static constexpr std::chrono::milliseconds patience{100};

  /// `line` ends with a line feed.
  void write(std::string_view line);

 private:
  enum class Outcome { written, failed, blocked };
  static Outcome writeWhole(std::string_view text, std::chrono::milliseconds limit,
                            std::size_t& written);
  bool writeMarker();

  std::mutex mutex_;
  std::size_t dropped_ = 0;  // lines since the last one that was written; guarded by mutex_
  bool withinLine_ = false;  // a line was written in part; guarded by mutex_
};

}  // namespace zephyl
