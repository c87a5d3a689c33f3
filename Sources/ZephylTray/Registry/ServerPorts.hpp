#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <boost/describe/class.hpp>

namespace zephyl {

/// The local ports and the loopback address that are set aside for one server. A value.
struct ServerPorts {
  std::int64_t socks = 0;  ///< SOCKS5 proxy of the server's tailscaled
  std::int64_t shim = 0;   ///< where its zephyl-tailnet listens for the agent
  std::string tunnelHost;  ///< alias address of the data tunnel, "127.100.0.<n>"
  std::optional<std::int64_t> tunnelFallback;  ///< tunnel port on 127.0.0.1

  /// The n of `tunnelHost`: its last component, 1 when that is no number.
  [[nodiscard]] std::int64_t aliasIndex() const;
  /// "127.0.0.1:<port>"; without a `tunnelFallback` the port follows from the alias.
  [[nodiscard]] std::string tunnelFallbackAddr() const;

  /// What the only server had when there was one only.
  static ServerPorts ofSingleServer();

  /// Ports for a new server: none that an existing server has for the same purpose, none of
  /// `reserved`, none that is taken on 127.0.0.1 at the moment; and an alias that no existing
  /// server has, as long as there is one among 250. Running out of ports ends the process.
  static ServerPorts allocate(const std::vector<ServerPorts>& existing,
                              const std::set<std::int64_t>& reserved);

  bool operator==(const ServerPorts&) const = default;
};
BOOST_DESCRIBE_STRUCT(ServerPorts, (), (socks, shim, tunnelHost, tunnelFallback))

}  // namespace zephyl
