#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <boost/describe/class.hpp>

#include "ZephylTray/Agent/AgentRecords.hpp"

/// What the running tray answers, as plain values. Their fields are what `--json` prints; they are
/// stable and described in docs/commands.md. A field that is not known is left out.
namespace zephyl {

/// Something that the user should know, and what to do about it.
struct CommandNotice {
  std::string code;     ///< stable, such as "agentNotInstalled"
  std::string message;  ///< what is so, a sentence
  std::string advice;   ///< what to do; may be empty

  bool operator==(const CommandNotice&) const = default;
};
BOOST_DESCRIBE_STRUCT(CommandNotice, (), (code, message, advice))

struct CommandAgent {
  bool installed = false;  ///< a program to launch was found
  bool running = false;    ///< a child of the tray runs
  bool reachable = false;  ///< one answers on the agent's port
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
  std::int64_t requests = 0;  ///< how many wait for approval
  std::int64_t servers = 0;
  std::int64_t connected = 0;    ///< how many of them can be reached
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
  bool usesTailnet = false;            ///< it is reached through a private network
  bool joinFailed = false;             ///< its network has refused the invite key
  std::optional<std::string> address;  ///< where its pages are found
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
  std::optional<std::int64_t> indexed;  ///< files; absent while the agent has not said
  std::optional<std::int64_t> files;
  std::optional<bool> ready;

  bool operator==(const CommandFolder&) const = default;
};
BOOST_DESCRIBE_STRUCT(CommandFolder, (), (path, name, servers, indexed, files, ready))

/// The answer of `requests`: those that wait, the oldest first.
struct CommandPending {
  std::vector<PendingApproval> requests;
  std::int64_t omitted = 0;  ///< how many more wait
};
BOOST_DESCRIBE_STRUCT(CommandPending, (), (requests, omitted))

}  // namespace zephyl
