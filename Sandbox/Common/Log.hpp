#pragma once

#include <string_view>
#include <utility>

#include <fmt/format.h>

namespace zephyl::sandbox {

/// Writes the text as one line to standard output, where the tray reads it, and at once: nothing is
/// buffered. Lines of several threads never mix. Control characters are made visible, so that no
/// value can begin a line of its own. A reader that has gone away is ignored.
void logLine(std::string_view text);

template <typename... Args>
void log(fmt::format_string<Args...> format, Args&&... args) {
  logLine(fmt::format(format, std::forward<Args>(args)...));
}

}  // namespace zephyl::sandbox
