#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "ZephylTray/Agent/AgentSnapshot.hpp"
#include "ZephylTray/Commands/Protocol/CommandRecords.hpp"
#include "ZephylTray/Menu/StatusDescription.hpp"

namespace zephyl {

/// Whether a panel shows the tray's icon.
enum class TrayHost {
  notWanted,  ///< the tray runs in a terminal or headless
  unknown,    ///< the session bus has not answered in time
  noBus,      ///< there is no session bus
  absent,     ///< no program of the session shows icons
  present,
};

/// The tray's facts about itself and its installation.
struct TrayFacts {
  std::string version;
  std::int64_t pid = 0;
  std::string mode;  ///< "desktop", "terminal" or "headless"
  bool agentInstalled = false;
  bool agentRunning = false;  ///< whether it runs as a child of the tray
  std::int64_t agentPort = 0;
  /// The directory in which an agent would be installed, or nullopt if this program is not
  /// installed.
  std::optional<std::string> resourceDirectory;
  bool tailnetProgramsInstalled = false;
  bool windowInstalled = false;
  bool controlListens = false;
};

/// All facts for the status, at one moment.
struct StatusFacts {
  TrayFacts tray;
  TrayHost host = TrayHost::notWanted;
  bool known = false;  ///< whether a poll of the agent has ended
  const AgentSnapshot& agent;
  TailnetSummary tailnets;
  std::vector<CommandServerRecord> servers;
};

/// Returns the answer of `status`: the state in words, facts that need the user's attention, and
/// notes that do not. Pure.
CommandStatus statusReport(const StatusFacts& facts);

}  // namespace zephyl
