#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <boost/describe/class.hpp>

namespace zephyl {

/// The local ports and the loopback address that are reserved for one server. A value.
struct ServerPorts {
  std::int64_t socks = 0;  ///< SOCKS5 proxy of the server's tailscaled
  std::int64_t shim = 0;   ///< port of its zephyl-tailnet for the agent
  std::string tunnelHost;  ///< alias address of the data tunnel, "127.100.0.<n>"
  std::optional<std::int64_t> tunnelFallback;  ///< tunnel port on 127.0.0.1

  /// Returns the n of `tunnelHost`, which is its last component, or 1 if that is not a number.
  [[nodiscard]] std::int64_t aliasIndex() const;
  /// Returns "127.0.0.1:<port>". Without a `tunnelFallback`, the port follows from the alias.
  [[nodiscard]] std::string tunnelFallbackAddr() const;

  /// Returns the ports of an installation that predates the registry.
  static ServerPorts ofSingleServer();

  /// Returns ports for a new server that no existing server uses for the same purpose, that are not
  /// in `reserved` and that are free on 127.0.0.1, and an alias that no existing server has, as
  /// long as one of 250 is left. Ends the process if no port is left.
  static ServerPorts allocate(const std::vector<ServerPorts>& existing,
                              const std::set<std::int64_t>& reserved);

  bool operator==(const ServerPorts&) const = default;
};
BOOST_DESCRIBE_STRUCT(ServerPorts, (), (socks, shim, tunnelHost, tunnelFallback))

}  // namespace zephyl
