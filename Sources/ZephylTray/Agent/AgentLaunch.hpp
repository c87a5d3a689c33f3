#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "System/Files/Environment.hpp"
#include "ZephylTray/Registry/ServerEntry.hpp"

namespace zephyl {

/// Which agent to launch and with which environment: pure functions of settings, registry
/// and file system, for `AgentProcess`.
struct AgentLaunch {
  std::string executable;
  std::string workingDirectory;
  Environment environment;

  /// The packaged agent when there is one, else a developer's build; none when there is neither.
  /// `inherited` is the environment that the tray itself runs in, `port` where the agent is to
  /// listen.
  static std::optional<AgentLaunch> choose(const std::vector<ServerEntry>& enabledServers,
                                           Environment inherited, std::int64_t port);

  /// The servers as the agent reads them from `ZEPHYL_SERVERS`: one line of JSON; none when no
  /// server has an address to reach it at.
  static std::optional<std::string> serversJSON(const std::vector<ServerEntry>& servers);

  /// The shell command that frees the agent's port, then turns into the agent.
  [[nodiscard]] std::string shellCommand(std::int64_t port) const;
};

}  // namespace zephyl
