#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "System/Network/HTTPSession.hpp"

namespace zephyl {

/// The parts of an address that an HTTP request needs.
struct HTTPDestination {
  std::string host;  ///< an IPv6 address without its brackets
  std::uint16_t port = 80;
  std::string authority;  ///< host and port as written
  std::string target;     ///< path and query

  /// Returns nullopt unless `url` is absolute and has the scheme "http", a host and a valid port.
  static std::optional<HTTPDestination> parse(std::string_view url);

  /// Returns `request` in the form in which it is sent. `keepsOpen` lets the server keep the
  /// connection open after its answer.
  [[nodiscard]] std::string wireForm(const ClientRequest& request, bool keepsOpen = false) const;
};

}  // namespace zephyl
