#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <sys/types.h>

#include "System/Data/Result.hpp"

namespace zephyl {

/// The owners of listening TCP sockets of this machine. Requires no privileges. Callable from any
/// thread.

/// Returns the user that owns the socket that accepts connections to `address`, a numeric IPv4 or
/// IPv6 address, at `port`. Fails if no socket listens there or the system does not reveal the
/// owner.
///
/// Queries the kernel for the one socket, which takes microseconds. If the kernel does not support
/// the query, as in some sandboxes and containers, reads the tables of all sockets.
Result<uid_t> listeningUser(const std::string& address, std::uint16_t port);

/// The kernel's tables of TCP sockets, as in /proc/net.
struct SocketTables {
  std::string tcp;   ///< /proc/net/tcp
  std::string tcp6;  ///< /proc/net/tcp6
};

/// Does the same with the text of the kernel's tables. Returns nullopt if no socket in them listens
/// there. Pure.
std::optional<uid_t> listeningUser(const SocketTables& tables, const std::string& address,
                                   std::uint16_t port);

}  // namespace zephyl
