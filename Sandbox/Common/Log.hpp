#pragma once

#include <string_view>
#include <utility>

#include "System/Data/Format.hpp"

namespace zephyl::sandbox {

/// Writes the text to standard output without buffering. Gives up if the reader has disconnected.
void print(std::string_view text);

/// Writes the text as one line to standard output, where the tray reads it. Control characters are
/// made visible, so no value can start a line of its own. Callable from any thread; lines do not
/// interleave.
void logLine(std::string_view text);

template <typename... Args>
void log(fmt::format_string<Args...> format, Args&&... args) {
  logLine(formatText(format, std::forward<Args>(args)...));
}

}  // namespace zephyl::sandbox
