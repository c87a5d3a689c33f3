#pragma once

#include <string>
#include <string_view>

#include <fmt/format.h>

namespace zephyl {

/// Writes "[tray] <text>" as one line to the process's diagnostic log (standard error). Control
/// characters in the text are made visible, so that nothing from outside can drive a terminal.
/// From any thread; lines never interleave.
void logLine(std::string_view text);

template <typename... Args>
void log(fmt::format_string<Args...> format, Args&&... args) {
  logLine(fmt::format(format, std::forward<Args>(args)...));
}

}  // namespace zephyl
