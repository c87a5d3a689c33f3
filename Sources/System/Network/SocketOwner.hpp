#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <sys/types.h>

#include "System/Data/Result.hpp"

namespace zephyl {

/// The owners of listening TCP sockets of this machine. Needs no privileges. Callable from any
/// thread.

/// Returns the user that owns the socket that accepts connections to `address`, a numeric IPv4 or
/// IPv6 address, at `port`. Fails if nothing listens there or the system does not reveal the owner.
///
/// Asks the kernel for the one socket, which takes microseconds. Where the kernel does not answer
/// that question (some sandboxes and containers), reads its tables of all sockets.
Result<uid_t> listeningUser(const std::string& address, std::uint16_t port);

/// The table of TCP sockets of one address family, as the kernel shows it in /proc/net.
struct SocketTables {
  std::string tcp;   ///< /proc/net/tcp
  std::string tcp6;  ///< /proc/net/tcp6
};

/// The same from the text of the kernel's tables. nullopt when none of their sockets listens there.
/// Pure.
std::optional<uid_t> listeningUser(const SocketTables& tables, const std::string& address,
                                   std::uint16_t port);

}  // namespace zephyl
