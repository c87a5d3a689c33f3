#pragma once

#include <optional>
#include <string>

#include <boost/describe/class.hpp>

/// What the control API returns, as plain values (see System/JSON.hpp for how they encode). What is
/// not known is left out.
namespace zephyl {

/// The answer of GET /status.
struct ControlStatus {
  bool available = false;            ///< both tailnet programs are there
  bool enrolled = false;             ///< an invite has been redeemed on this machine
  bool running = false;              ///< a tailnet runs
  std::optional<std::string> url;    ///< the primary server's web address
  std::optional<std::string> relay;  ///< what its connection goes through
};
BOOST_DESCRIBE_STRUCT(ControlStatus, (), (available, enrolled, running, url, relay))

/// One element of GET /servers.
struct ControlServerRecord {
  std::string id;
  std::string name;   ///< as shown
  std::string label;  ///< as the user set it
  bool nameResolved = false;
  std::string accent;       ///< as shown
  std::string localAccent;  ///< as the user set it
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
