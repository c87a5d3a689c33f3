#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>

#include <sys/types.h>

#include "System/Data/Result.hpp"
#include "System/Network/SocketOwner.hpp"

namespace zephyl {

/// Decides whether the program that listens on the agent's port is accepted as the agent. Any local
/// user could occupy the port first, so the socket must belong to this user or to root.
///
/// Queries the system once and keeps the verdict until `forget`. If the port belongs to another
/// user, logs one line, and no further line until a verification has succeeded.
///
/// Callable from any thread.
class AgentPeer {
 public:
  using OwnerQuery = std::function<Result<uid_t>(const std::string& address, std::uint16_t port)>;

  explicit AgentPeer(OwnerQuery ownerOf = defaultQuery());

  /// Must be called for each connection to the agent before anything is sent. Returns the reason
  /// why the connection must not be used, or nullopt if it may be used.
  std::optional<Error> verify(const std::string& address, std::uint16_t port);
  /// Makes the next `verify` query the system again. Must be called when a connection has ended or
  /// failed, because another program may have taken the port.
  void forget();

 private:
  static OwnerQuery defaultQuery();
  void report(std::uint16_t port, uid_t owner);

  const OwnerQuery ownerOf_;
  std::mutex mutex_;
  bool verified_ = false;  // guarded by mutex_, as is the next
  bool reported_ = false;
};

}  // namespace zephyl
