#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "System/Network/HTTPSession.hpp"

namespace zephyl {

/// What an address says about where to connect to and what to ask for there.
struct HTTPDestination {
  std::string host;  ///< an IPv6 address without its brackets
  std::uint16_t port = 80;
  std::string authority;  ///< host and port as written
  std::string target;     ///< path and query

  /// None unless `url` is absolute, with the scheme "http", a host and a port within range.
  static std::optional<HTTPDestination> parse(std::string_view url);

  /// Returns `request` as it goes over the wire. `keepsOpen` lets the server keep the connection
  /// open after its answer.
  [[nodiscard]] std::string wireForm(const ClientRequest& request, bool keepsOpen = false) const;
};

}  // namespace zephyl
