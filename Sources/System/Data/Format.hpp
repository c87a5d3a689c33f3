#pragma once

#include <string>
#include <utility>

#include <fmt/format.h>

namespace zephyl {

/// Formats like `formatText`, with a format string that was verified elsewhere.
std::string formatArguments(fmt::string_view format, fmt::format_args arguments);

/// Returns `format` with its replacement fields filled in. The compiler verifies the format string.
/// Only this function formats text in the program: fmt is used as a library of headers, and one
/// source compiles what they implement.
template <typename... Args>
std::string formatText(fmt::format_string<Args...> format, Args&&... arguments) {
  return formatArguments(format, fmt::make_format_args(arguments...));
}

}  // namespace zephyl
