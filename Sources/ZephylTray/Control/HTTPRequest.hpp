#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "System/Data/Secret.hpp"

namespace zephyl {

/// A request to the control server: what the client asks for, without how it was sent.
struct HTTPRequest {
  std::string method;                          ///< in upper case
  std::string path;                            ///< the target without its query
  std::map<std::string, std::string> headers;  ///< names in lower case; of a repeated one the last
  SecretString body;                           ///< of exactly Content-Length bytes

  /// Returns the request at the beginning of `bytes`, or nullopt while it is incomplete or cannot
  /// be parsed. Ignores what follows the request. Pure.
  static std::optional<HTTPRequest> parse(std::string_view bytes);

  /// Returns the value of a header; `name` must be in lower case.
  [[nodiscard]] std::optional<std::string> header(const std::string& name) const;

  bool operator==(const HTTPRequest&) const = default;
};

/// Parses one request while it arrives. The head is parsed once, when it is complete; afterwards
/// each call only compares lengths, so a request that arrives byte by byte costs no more than one
/// that arrives at once.
///
/// Lenient: a head is valid UTF-8 that has a method, a target and a blank line. A Content-Length
/// that is absent or not a number counts as 0.
class HTTPRequestParser {
 public:
  enum class Stage {
    head,     ///< the head is incomplete
    body,     ///< the head is complete, the body is not
    whole,    ///< the request is complete
    invalid,  ///< the head cannot be parsed, whatever follows
  };

  /// Advances as far as `received` allows: all bytes of the connection so far, at least as many as
  /// in the previous call. Must not be called again after it has returned `whole`.
  Stage advance(std::string_view received);

  /// The request: without its body at stage `body`, with it at stage `whole`.
  [[nodiscard]] const HTTPRequest& request() const& { return request_; }
  [[nodiscard]] HTTPRequest&& request() && { return std::move(request_); }

 private:
  Stage parseHead(std::string_view received);

  HTTPRequest request_;
  Stage stage_ = Stage::head;
  std::size_t searched_ = 0;   // bytes that are known not to begin the end of the head
  std::size_t bodyStart_ = 0;  // where the body begins, once the head is complete
  std::size_t bodyBytes_ = 0;
};

}  // namespace zephyl
