#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace zephyl {

/// A request to the control server: what the client asks for, without how it was sent.
struct HTTPRequest {
  std::string method;                          ///< in upper case
  std::string path;                            ///< the target without its query
  std::map<std::string, std::string> headers;  ///< names in lower case; of a repeated one the last
  std::string body;                            ///< exactly as long as Content-Length says

  /// The request at the beginning of `bytes`; none while it is not whole, or is none. What follows
  /// it is ignored. Lenient: anything that has a method, a target and a blank line is a request; a
  /// Content-Length that is absent or no number counts as 0. Pure.
  static std::optional<HTTPRequest> parse(std::string_view bytes);

  /// The value of a header; `name` in lower case.
  [[nodiscard]] std::optional<std::string> header(const std::string& name) const;

  bool operator==(const HTTPRequest&) const = default;
};

}  // namespace zephyl
