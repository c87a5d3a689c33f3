#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <boost/describe/class.hpp>

#include "ZephylTray/Agent/AgentRecords.hpp"

/// The answers of the running tray, as plain values. Their fields are printed by `--json`. They are
/// stable and described in docs/commands.md. Unknown fields are omitted.
namespace zephyl {

/// A fact that the user should know, with advice.
struct CommandNotice {
  std::string code;     ///< stable, such as "agentNotInstalled"
  std::string message;  ///< the fact, as a sentence
  std::string advice;   ///< what to do about it; may be empty

  bool operator==(const CommandNotice&) const = default;
};
BOOST_DESCRIBE_STRUCT(CommandNotice, (), (code, message, advice))

/// The state of the agent.
struct CommandAgent {
  bool installed = false;  ///< whether a program to launch was found
  bool running = false;    ///< whether a child of the tray runs
  bool reachable = false;  ///< whether an agent answers on its port
  bool busy = false;
  std::int64_t port = 0;
  std::optional<AgentState> state;

  bool operator==(const CommandAgent&) const = default;
};
BOOST_DESCRIBE_STRUCT(CommandAgent, (), (installed, running, reachable, busy, port, state))

/// The answer of `status`.
struct CommandStatus {
  std::string version;
  std::int64_t pid = 0;
  std::string mode;     ///< "desktop", "terminal" or "headless"
  std::string summary;  ///< the state in words, as in the tool tip
  CommandAgent agent;
  std::int64_t folders = 0;
  std::int64_t requests = 0;  ///< the number of requests that await approval
  std::int64_t servers = 0;
  std::int64_t connected = 0;    ///< the number of reachable servers
  std::optional<bool> trayHost;  ///< whether a panel shows the icon
  std::vector<CommandNotice> attention;
  std::vector<CommandNotice> notes;

  bool operator==(const CommandStatus&) const = default;
};
BOOST_DESCRIBE_STRUCT(CommandStatus, (),
                      (version, pid, mode, summary, agent, folders, requests, servers, connected,
                       trayHost, attention, notes))

/// An element of the answer of `servers`.
struct CommandServerRecord {
  std::string id;
  std::string name;
  std::string state;  ///< "connected", "starting", "disconnected" or "disabled"
  bool enabled = false;
  bool usesTailnet = false;            ///< whether it is reached through a private network
  bool joinFailed = false;             ///< whether its network has refused the invite key
  std::optional<std::string> address;  ///< its web address
  std::optional<std::string> relay;
  std::optional<std::string> problem;

  bool operator==(const CommandServerRecord&) const = default;
};
BOOST_DESCRIBE_STRUCT(CommandServerRecord, (),
                      (id, name, state, enabled, usesTailnet, joinFailed, address, relay, problem))

/// An element of the answer of `folders`.
struct CommandFolder {
  std::string path;
  std::string name;
  std::vector<std::string> servers;     ///< ids; empty: every server
  std::optional<std::int64_t> indexed;  ///< number of files; nullopt while unknown
  std::optional<std::int64_t> files;
  std::optional<bool> ready;

  bool operator==(const CommandFolder&) const = default;
};
BOOST_DESCRIBE_STRUCT(CommandFolder, (), (path, name, servers, indexed, files, ready))

/// The answer of `requests`: the pending requests, oldest first.
struct CommandPending {
  std::vector<PendingApproval> requests;
  std::int64_t omitted = 0;  ///< the number of further pending requests
};
BOOST_DESCRIBE_STRUCT(CommandPending, (), (requests, omitted))

}  // namespace zephyl
