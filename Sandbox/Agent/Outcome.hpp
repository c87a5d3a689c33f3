#pragma once

#include <string>
#include <utility>

#include <boost/system/result.hpp>

namespace zephyl::sandbox {

/// Why something asked for was not done: the HTTP status to answer with and words for the user.
struct Rejection {
  Rejection() = default;
  Rejection(int httpStatus, std::string text) : status(httpStatus), message(std::move(text)) {}

  int status = 500;
  std::string message;
};

inline Rejection internalError(std::string message) {
  return {500, std::move(message)};
}

inline Rejection badRequest(std::string message) {
  return {400, std::move(message)};
}
inline Rejection notFound(std::string message) {
  return {404, std::move(message)};
}
inline Rejection conflict(std::string message) {
  return {409, std::move(message)};
}

/// A value, or why there is none. Read the value with `*` after a test; `value()` is not provided
/// for.
template <typename T>
using Outcome = boost::system::result<T, Rejection>;

}  // namespace zephyl::sandbox
