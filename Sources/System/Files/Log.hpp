#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <utility>

#include "System/Data/Format.hpp"

namespace zephyl {

/// Writes "[tray] <text>" as one line to the process's diagnostic log (standard error). Control
/// characters in the text are made visible, so that nothing from outside can drive a terminal.
/// From any thread; lines never interleave. Never waits longer than 100 ms: when standard error
/// takes nothing, lines are dropped, and the next one that is written says how many.
void logLine(std::string_view text);

/// Shows the lines of the diagnostic log somewhere else for as long as it lives. There is one at a
/// time.
class LogSink {
 public:
  /// `take` is given each line, without its end, on whatever thread it comes from: it must be short
  /// and must not log. With `instead`, nothing goes to standard error meanwhile.
  LogSink(std::function<void(const std::string& line)> take, bool instead);
  /// `take` is not called any more once this has returned.
  ~LogSink();
  LogSink(const LogSink&) = delete;
  LogSink& operator=(const LogSink&) = delete;
};

template <typename... Args>
void log(fmt::format_string<Args...> format, Args&&... args) {
  logLine(formatText(format, std::forward<Args>(args)...));
}

}  // namespace zephyl
