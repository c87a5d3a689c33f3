#pragma once

#include <string_view>

#include <fmt/format.h>

namespace zephyl::sandbox {

/// Writes the text as one line to standard output, where whoever started the agent reads it. Lines
/// of several threads never mix; control characters are made visible; a reader that has gone away
/// is ignored.
void logLine(std::string_view text);

template <typename... Args>
void log(fmt::format_string<Args...> format, Args&&... args) {
  logLine(fmt::format(format, std::forward<Args>(args)...));
}

}  // namespace zephyl::sandbox
