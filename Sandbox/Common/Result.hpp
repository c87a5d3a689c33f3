#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

#include <boost/system/result.hpp>

namespace zephyl::sandbox {

/// Why something could not be done, in words fit for a log line.
struct Failure {
  Failure() = default;
  /// The message is the parts, joined. Braces only, `Failure{"no answer"}`, so that a string never
  /// turns into a failure by itself.
  Failure(std::initializer_list<std::string_view> parts) {
    for (const auto part : parts) message += part;
  }

  std::string message;
};

/// A value, or why there is none. Read the value with `*` after a test; `value()` is not provided
/// for. `Result<void>` reports mere success.
template <typename T>
using Result = boost::system::result<T, Failure>;

}  // namespace zephyl::sandbox
