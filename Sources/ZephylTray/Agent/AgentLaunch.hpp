#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "System/Files/Environment.hpp"
#include "ZephylTray/Registry/ServerEntry.hpp"

namespace zephyl {

/// The agent to launch and its environment. Pure functions of settings, registry and file system,
/// for `AgentProcess`.
struct AgentLaunch {
  std::string executable;
  std::string workingDirectory;
  Environment environment;

  /// Returns the packaged agent, else a developer's build, or nullopt if there is neither.
  /// `inherited` is the tray's own environment. `port` is the port that the agent must use.
  static std::optional<AgentLaunch> choose(const std::vector<ServerEntry>& enabledServers,
                                           Environment inherited, std::int64_t port);

  /// Returns the value of `ZEPHYL_SERVERS`, one line of JSON that describes the servers, or nullopt
  /// if no server has a usable address.
  static std::optional<std::string> serversJSON(const std::vector<ServerEntry>& servers);

  /// Returns the shell command that ends the process that listens on the agent's port and then
  /// executes the agent.
  [[nodiscard]] std::string shellCommand(std::int64_t port) const;
};

}  // namespace zephyl
