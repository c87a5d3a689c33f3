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

/// Decides whether the program that listens on the agent's port may count as the agent. Any local
/// user can take the port first, so its socket must belong to this user or to root.
///
/// The system is asked once, and the verdict is kept until `forget`. When the port turns out to
/// belong to somebody else one line is logged, and no further one until the port has been in the
/// right hands again.
///
/// Callable from any thread.
class AgentPeer {
 public:
  using OwnerQuery = std::function<Result<uid_t>(const std::string& address, std::uint16_t port)>;

  explicit AgentPeer(OwnerQuery ownerOf = defaultQuery());

  /// Called for each connection to the agent before anything is sent. Returns why the connection
  /// must not be used, nullopt when it may be.
  std::optional<Error> verify(const std::string& address, std::uint16_t port);
  /// Has the next `verify` ask the system again: a connection has ended or could not be made, so
  /// another program may listen by now.
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
