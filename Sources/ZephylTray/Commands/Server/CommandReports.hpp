#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "System/Data/Result.hpp"
#include "ZephylTray/Agent/AgentSnapshot.hpp"
#include "ZephylTray/Commands/Protocol/CommandRecords.hpp"
#include "ZephylTray/Commands/Server/StatusReport.hpp"
#include "ZephylTray/Menu/TailnetView.hpp"
#include "ZephylTray/Registry/Servers.hpp"

namespace zephyl {

/// Creates the answers of the commands that report the state. Main thread only.
class CommandReports {
 public:
  struct Port {
    std::function<TrayFacts()> tray;
    std::function<const AgentSnapshot&()> agent;
    std::function<bool()> agentKnown;  ///< whether a poll of the agent has ended
    std::function<ServerList()> servers;
    std::function<std::optional<TailnetView>(const std::string& serverId)> tailnet;
    /// Returns the web address of a server whose tunnel is bound to an address.
    std::function<std::optional<std::string>(const std::optional<std::string>& bound)> webAddressOf;
  };
  /// The maximum number of reported requests and the maximum size of their fields, in bytes. Marks
  /// show what was left out.
  static constexpr std::size_t maxRequests = 50;
  static constexpr std::size_t maxFieldBytes = std::size_t{16} * 1024;

  explicit CommandReports(Port port) : port_(std::move(port)) {}

  [[nodiscard]] CommandStatus status(TrayHost host) const;
  [[nodiscard]] std::vector<CommandServerRecord> servers() const;
  [[nodiscard]] std::vector<CommandFolder> folders() const;
  [[nodiscard]] CommandPending requests() const;

  /// Finds the server with this id or display name (case-insensitive), or the only one whose id
  /// begins with `name`. The error says that no server or several match.
  [[nodiscard]] Result<ServerEntry> findServer(std::string_view name) const;

 private:
  const Port port_;
};

}  // namespace zephyl
