#pragma once

#include <string>
#include <utility>

#if __has_include(<fmt/base.h>)
#include <fmt/base.h>
#else
#include <fmt/core.h>
#endif

namespace zephyl {

/// Formats like `formatText`. `format` must have been verified elsewhere.
std::string formatArguments(fmt::string_view format, fmt::format_args arguments);

/// Returns `format` with its replacement fields filled in. The compiler verifies the format string.
/// All text of the program is formatted here, because only this function's source file compiles the
/// implementation of fmt.
template <typename... Args>
std::string formatText(fmt::format_string<Args...> format, Args&&... arguments) {
  return formatArguments(format, fmt::make_format_args(arguments...));
}

}  // namespace zephyl
