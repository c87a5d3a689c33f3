#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "System/Data/Secret.hpp"

namespace zephyl {

/// A request to the control server, independent of its transport.
struct HTTPRequest {
  std::string method;                          ///< in upper case
  std::string path;                            ///< the target without its query
  std::map<std::string, std::string> headers;  ///< names in lower case; the last of repeated ones
  SecretString body;                           ///< exactly Content-Length bytes

  /// Returns the request at the beginning of `bytes`, or nullopt if it is incomplete or malformed.
  /// Ignores bytes after the request. Pure.
  static std::optional<HTTPRequest> parse(std::string_view bytes);

  /// Returns the value of a header. `name` must be in lower case.
  [[nodiscard]] std::optional<std::string> header(const std::string& name) const;

  bool operator==(const HTTPRequest&) const = default;
};

/// Parses one request while it is received. The head is parsed once, when it is complete. Later
/// calls only compare lengths, so a request that arrives byte by byte costs no more than one that
/// arrives at once.
///
/// Lenient: a head is valid UTF-8 with a method, a target and a blank line at its end. A
/// Content-Length that is absent or not a number counts as 0.
class HTTPRequestParser {
 public:
  enum class Stage {
    head,     ///< the head is incomplete
    body,     ///< the head is complete, the body is not
    whole,    ///< the request is complete
    invalid,  ///< the head is malformed
  };

  /// Parses `received`, which contains all bytes received on the connection, at least as many as in
  /// the previous call. Must not be called again after it has returned `whole`.
  Stage advance(std::string_view received);

  /// Returns the request: without its body at stage `body`, with it at stage `whole`.
  [[nodiscard]] const HTTPRequest& request() const& { return request_; }
  [[nodiscard]] HTTPRequest&& request() && { return std::move(request_); }

 private:
  Stage parseHead(std::string_view received);

  HTTPRequest request_;
  Stage stage_ = Stage::head;
  std::size_t searched_ = 0;   // bytes in which the end of the head cannot begin
  std::size_t bodyStart_ = 0;  // offset of the body, once the head is complete
  std::size_t bodyBytes_ = 0;
};

}  // namespace zephyl
