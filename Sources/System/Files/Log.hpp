#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <utility>

#include "System/Data/Format.hpp"

namespace zephyl {

/// Writes "[tray] <text>" as one line to the diagnostic log (standard error). Control characters in
/// the text are made visible, so that untrusted text cannot control a terminal. Callable from any
/// thread. Lines never interleave. Waits for at most 100 ms: while standard error is blocked, lines
/// are dropped, and the next line that is written reports how many.
void logLine(std::string_view text);

/// Receives the lines of the diagnostic log while it exists. Only one may exist at a time.
class LogSink {
 public:
  /// Calls `receive` with each line, without its end, on the thread that logs it. `receive` must be
  /// short and must not log. If `instead` is true, nothing is written to standard error.
  LogSink(std::function<void(const std::string& line)> receive, bool instead);
  /// After it returns, `receive` is not called any more.
  ~LogSink();
  LogSink(const LogSink&) = delete;
  LogSink& operator=(const LogSink&) = delete;
};

template <typename... Args>
void log(fmt::format_string<Args...> format, Args&&... args) {
  logLine(formatText(format, std::forward<Args>(args)...));
}

}  // namespace zephyl
