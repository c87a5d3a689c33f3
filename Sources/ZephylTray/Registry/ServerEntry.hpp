#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <boost/describe/class.hpp>

#include "System/Data/URL.hpp"
#include "ZephylTray/Registry/ServerPorts.hpp"

namespace zephyl {

/// One registered server: an element of servers.json. A value. Derived properties are computed on
/// each call. A text is blank if it consists of spaces and tabs only.
struct ServerEntry {
  std::string id;     ///< a UUID in lower case, generated with the entry, never changed
  std::string label;  ///< the user's name for the server; may be empty
  std::optional<std::string> serverName;    ///< the server's own name
  std::optional<std::string> accent;        ///< the user's color for the server
  std::optional<std::string> serverAccent;  ///< the server's own color
  std::optional<std::int64_t>
      ordinal;  ///< numbers the servers in the order of their addition, from 1
  std::optional<std::string> address;             ///< web address: scheme, host, optional port
  std::optional<std::string> tailnetFingerprint;  ///< case-insensitive
  std::string agentId;  ///< the agent's id of the server; empty for the oldest entry
  ServerPorts ports;
  bool enabled = false;  ///< whether its tailnet should run

  /// Returns whether an invite to the server's private network was redeemed.
  [[nodiscard]] bool isJoined() const;
  /// Returns `address` as a URL, or nullopt if it is blank or lacks a scheme or a host.
  [[nodiscard]] std::optional<URL> addressURL() const;
  /// Returns the server's address for the agent, "wss://srv:8443/agent", or nullopt without
  /// `addressURL`.
  [[nodiscard]] std::optional<std::string> serverURL() const;
  /// Returns the label, else the server's own name, else "Zephyl <ordinal>".
  [[nodiscard]] std::string displayName() const;
  /// Returns whether the server has a label, a name of its own or an address.
  [[nodiscard]] bool nameResolved() const;
  /// Returns the user's color, else the server's. May be empty.
  [[nodiscard]] std::string displayAccent() const;

  bool operator==(const ServerEntry&) const = default;
};
BOOST_DESCRIBE_STRUCT(ServerEntry, (),
                      (id, label, serverName, accent, serverAccent, ordinal, address,
                       tailnetFingerprint, agentId, ports, enabled))

/// Returns the next ordinal. The largest number is returned unchanged.
std::int64_t ordinalAfter(std::int64_t ordinal);
/// Returns the ordinal of the next server: the largest plus one, or 1 if there is none. Gaps are
/// not filled.
std::int64_t nextOrdinal(const std::vector<ServerEntry>& entries);

}  // namespace zephyl
