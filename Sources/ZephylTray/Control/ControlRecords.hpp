#pragma once

#include <optional>
#include <string>

#include <boost/describe/class.hpp>

/// The records of the control API, as plain values (see System/Data/JSON.hpp for their encoding).
/// Unknown values are omitted.
namespace zephyl {

/// The answer of GET /status.
struct ControlStatus {
  bool available = false;            ///< both tailnet programs exist
  bool enrolled = false;             ///< this machine has redeemed an invite
  bool running = false;              ///< any tailnet runs
  std::optional<std::string> url;    ///< the primary server's web address
  std::optional<std::string> relay;  ///< the relay of its connection
};
BOOST_DESCRIBE_STRUCT(ControlStatus, (), (available, enrolled, running, url, relay))

/// One element of GET /servers.
struct ControlServerRecord {
  std::string id;
  std::string name;   ///< the displayed name
  std::string label;  ///< set by the user
  bool nameResolved = false;
  std::string accent;       ///< the displayed color
  std::string localAccent;  ///< set by the user
  bool enabled = false;
  bool usesTailnet = false;
  bool running = false;   ///< its tailnet runs
  bool enrolled = false;  ///< the agent is connected to it
  std::optional<std::string> agentError;
  std::optional<std::string> serverName;
  std::optional<std::string> serverAccent;
  std::optional<std::string> boundAddress;
  std::optional<std::string> webUrl;
  std::optional<std::string> relay;
  std::optional<std::string> addressUnresolved;
  std::optional<std::string> enrolError;
  std::optional<std::string> tailnetStalled;
};
BOOST_DESCRIBE_STRUCT(ControlServerRecord, (),
                      (id, name, label, nameResolved, accent, localAccent, enabled, usesTailnet,
                       running, enrolled, agentError, serverName, serverAccent, boundAddress,
                       webUrl, relay, addressUnresolved, enrolError, tailnetStalled))

}  // namespace zephyl
