#pragma once

#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>

#include <boost/system/result.hpp>

namespace zephyl {

/// The reason why an operation failed, in words fit for a user or a log line.
struct Error {
  Error() = default;
  /// Joins the parts to the message. Only braces, as in `Error{"not a list"}`, make an error, so a
  /// string is never converted implicitly.
  Error(std::initializer_list<std::string_view> parts) {
    for (const auto part : parts) message += part;
  }

  std::string message;
  /// Whether a request failed before anything of it was sent, because no connection was made.
  bool nothingSent = false;
  bool isShortage = false;  ///< the operation lacked descriptors or memory, and may succeed later

  bool operator==(const Error&) const = default;
};

/// Returns "<what>: <the system's description of the error number>", with `isShortage` set
/// according to the number.
Error systemError(std::string_view what, int number);

/// Returns whether the error number reports a lack of descriptors, memory or buffers.
bool isShortage(int number);

/// Called by `Result::value()` if there is no value, which is a programming error.
[[noreturn]] void throw_exception_from_error(  // NOLINT(readability-identifier-naming)
    const Error& error, const boost::source_location& where);

/// A value or the reason for its absence. `Result<void>` holds only success or the reason of a
/// failure.
template <typename T>
using Result = boost::system::result<T, Error>;

}  // namespace zephyl
