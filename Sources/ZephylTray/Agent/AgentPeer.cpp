#include "ZephylTray/Agent/AgentPeer.hpp"

#include <utility>

#include <unistd.h>

#include "System/Data/Format.hpp"
#include "System/Files/Log.hpp"

namespace zephyl {

AgentPeer::AgentPeer(OwnerQuery ownerOf) : ownerOf_(std::move(ownerOf)) {}

AgentPeer::OwnerQuery AgentPeer::defaultQuery() {
  return
      [](const std::string& address, std::uint16_t port) { return listeningUser(address, port); };
}

std::optional<Error> AgentPeer::verify(const std::string& address, std::uint16_t port) {
  const std::scoped_lock lock(mutex_);
  if (verified_) return std::nullopt;
  const auto owner = ownerOf_(address, port);
  if (!owner) return owner.error();
  if (*owner != 0 && *owner != ::geteuid()) {
    report(port, *owner);
    return Error{formatText("port {} belongs to another user's program", port)};
  }
  verified_ = true;
  reported_ = false;
  return std::nullopt;
}

void AgentPeer::forget() {
  const std::scoped_lock lock(mutex_);
  verified_ = false;
}

void AgentPeer::report(std::uint16_t port, uid_t owner) {
  if (std::exchange(reported_, true)) return;
  log("port {} belongs to a program of another user (user id {}), which is not accepted as the "
      "agent; end that program or set another \"trayPort\"",
      port, owner);
}

}  // namespace zephyl
