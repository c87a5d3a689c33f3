#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <boost/describe/class.hpp>

#include "System/Data/URL.hpp"
#include "ZephylTray/Registry/ServerPorts.hpp"

namespace zephyl {

/// One registered server: an element of servers.json. A value; what is derived is worked out on
/// each use. Blank means that nothing but spaces and tabs is there.
struct ServerEntry {
  std::string id;     ///< a UUID in lower case, made with the entry, never changed
  std::string label;  ///< the user's own name for the server; empty when there is none
  std::optional<std::string> serverName;          ///< what the server calls itself
  std::optional<std::string> accent;              ///< the user's color for the server
  std::optional<std::string> serverAccent;        ///< the color that the server asks for
  std::optional<std::int64_t> ordinal;            ///< counts the servers as they were added, from 1
  std::optional<std::string> address;             ///< web address: scheme, host, perhaps a port
  std::optional<std::string> tailnetFingerprint;  ///< case does not matter
  std::string agentId;  ///< what the agent calls the server; empty for the oldest entry
  ServerPorts ports;
  bool enabled = false;  ///< whether its tailnet is to run

  /// Whether an invite to the server's private network has been redeemed.
  [[nodiscard]] bool isJoined() const;
  /// `address` as a URL; none when it is blank or lacks a scheme or a host.
  [[nodiscard]] std::optional<URL> addressURL() const;
  /// Where the agent reaches the server, "wss://srv:8443/agent"; none without `addressURL`.
  [[nodiscard]] std::optional<std::string> serverURL() const;
  /// The label, else the server's own name, else "Zephyl <ordinal>".
  [[nodiscard]] std::string displayName() const;
  /// Whether a label, a name of the server's own or an address is known.
  [[nodiscard]] bool nameResolved() const;
  /// The user's color, else the server's; may be empty.
  [[nodiscard]] std::string displayAccent() const;

  bool operator==(const ServerEntry&) const = default;
};
BOOST_DESCRIBE_STRUCT(ServerEntry, (),
                      (id, label, serverName, accent, serverAccent, ordinal, address,
                       tailnetFingerprint, agentId, ports, enabled))

/// One more; the largest number stays.
std::int64_t ordinalAfter(std::int64_t ordinal);
/// The ordinal of the next server: one after the largest, 1 when there is none. Gaps stay.
std::int64_t nextOrdinal(const std::vector<ServerEntry>& entries);

}  // namespace zephyl
