#pragma once

#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>

#include <boost/system/result.hpp>

namespace zephyl {

/// Why something could not be done, in words fit for a user or a log line.
struct Error {
  Error() = default;
  /// The message is the parts, joined. Braces only, `Error{"not a list"}`, so that a string never
  /// turns into an error by itself.
  Error(std::initializer_list<std::string_view> parts) {
    for (const auto part : parts) message += part;
  }

  std::string message;

  bool operator==(const Error&) const = default;
};

/// "<what>: <the system's description of the error number>".
Error systemError(std::string_view what, int number);

/// Called by `Result::value()` when there is none; reaching it is a programming error.
[[noreturn]] void throw_exception_from_error(  // NOLINT(readability-identifier-naming)
    const Error& error, const boost::source_location& where);

/// A value, or the reason why there is none. `Result<void>` reports mere success.
template <typename T>
using Result = boost::system::result<T, Error>;

}  // namespace zephyl
