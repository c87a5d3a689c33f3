#pragma once

#include <string>
#include <vector>

#include "Desktop/Freedesktop/Bus/BusConnection.hpp"

namespace zephyl {

/// A bus name and the connection that owns it, watched from `watch` to `forget`.
///
/// Signals of a service are accepted only from the owner of its name. A match rule alone does not
/// ensure that: the bus applies it to broadcasts, but delivers every signal that is addressed to
/// this connection, and the library does not compare a well-known name with the sender's unique
/// name.
///
/// Bus thread only. Must not move while it watches, because its slots refer to it.
class WatchedName {
 public:
  using OwnerHandler = BusConnection::OwnerHandler;

  explicit WatchedName(std::string name) : name_(std::move(name)) {}
  WatchedName(const WatchedName&) = delete;
  WatchedName& operator=(const WatchedName&) = delete;

  /// Watches the name on this connection. Calls `changed` after `owner()` was updated.
  void watch(const BusConnection& connection, OwnerHandler changed = nullptr);
  /// Stops watching. The name has no owner from now on.
  void forget();

  [[nodiscard]] const std::string& name() const { return name_; }
  /// Returns the unique name of the owner, or empty if there is none or it is not known yet.
  [[nodiscard]] const std::string& owner() const { return owner_; }
  /// Returns whether the owner sent this message.
  [[nodiscard]] bool sent(sd_bus_message& message) const;

  /// Calls `onSignal` for the owner's signals that match `rule`, which must contain neither type
  /// nor sender.
  [[nodiscard]] BusSlot subscribe(const BusConnection& connection, const std::string& rule,
                                  BusConnection::Handler onSignal) const;

 private:
  const std::string name_;
  std::string owner_;
  std::vector<BusSlot> slots_;
};

}  // namespace zephyl
