#include "ZephylTray/Registry/ServerPorts.hpp"

#include <algorithm>
#include <cstdlib>

#include <netinet/in.h>
#include <sys/socket.h>

#include "System/Data/Format.hpp"
#include "System/Data/Text.hpp"
#include "System/Files/FileDescriptor.hpp"
#include "System/Files/Log.hpp"

namespace zephyl {

namespace {

constexpr std::int64_t firstSocksPort = 1055;
constexpr std::int64_t firstShimPort = 8800;
constexpr std::int64_t firstFallbackPort = 8080;
constexpr std::int64_t lastPort = 65535;
constexpr int lastAlias = 250;

std::string alias(int index) {
  return formatText("127.100.0.{}", index);
}

/// Returns whether the port can be bound on 127.0.0.1 now. If no socket can be created, the port
/// counts as free.
bool isFree(std::int64_t port) {
  const FileDescriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!socket) return true;
  const int enabled = 1;
  ::setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &enabled, sizeof enabled);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  return ::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

std::int64_t firstFree(std::int64_t first, const std::set<std::int64_t>& excluded) {
  for (std::int64_t port = first; port <= lastPort; ++port) {
    if (!excluded.contains(port) && isFree(port)) return port;
  }
  log("no free local port at or above {} for another server", first);
  std::abort();
}

std::string firstFreeAlias(const std::set<std::string>& used) {
  int index = 1;
  while (index < lastAlias && used.contains(alias(index))) ++index;
  return alias(index);
}

}  // namespace

std::int64_t ServerPorts::aliasIndex() const {
  const auto components = splitNonEmpty(tunnelHost, '.');
  return components.empty() ? 1 : parseDecimal(components.back()).value_or(1);
}

std::string ServerPorts::tunnelFallbackAddr() const {
  // Unsigned, because the alias in the file may be any number.
  const auto fromAlias = std::uint64_t{firstFallbackPort} +
                         static_cast<std::uint64_t>(std::max(aliasIndex(), std::int64_t{1}) - 1);
  if (tunnelFallback) return formatText("127.0.0.1:{}", *tunnelFallback);
  return formatText("127.0.0.1:{}", fromAlias);
}

ServerPorts ServerPorts::ofSingleServer() {
  return {firstSocksPort, firstShimPort, alias(1), firstFallbackPort};
}

ServerPorts ServerPorts::allocate(const std::vector<ServerPorts>& existing,
                                  const std::set<std::int64_t>& reserved) {
  auto usedSocks = reserved;
  auto usedShim = reserved;
  auto usedFallback = reserved;
  std::set<std::string> usedHosts;
  for (const auto& ports : existing) {
    usedSocks.insert(ports.socks);
    usedShim.insert(ports.shim);
    usedHosts.insert(ports.tunnelHost);
    if (ports.tunnelFallback) usedFallback.insert(*ports.tunnelFallback);
  }
  ServerPorts chosen;
  chosen.socks = firstFree(firstSocksPort, usedSocks);
  usedShim.insert(chosen.socks);
  chosen.shim = firstFree(firstShimPort, usedShim);
  chosen.tunnelHost = firstFreeAlias(usedHosts);
  chosen.tunnelFallback = firstFree(firstFallbackPort, usedFallback);
  return chosen;
}

}  // namespace zephyl
