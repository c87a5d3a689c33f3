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
  notWanted,  ///< the tray runs in a terminal or without a desktop
  unknown,    ///< the session bus has not answered in time
  noBus,      ///< no session bus answers
  absent,     ///< no program of the session shows icons
  present,
};

/// What the tray knows about itself and its installation.
struct TrayFacts {
  std::string version;
  std::int64_t pid = 0;
  std::string mode;  ///< "desktop", "terminal" or "headless"
  bool agentInstalled = false;
  bool agentRunning = false;  ///< as a child of the tray
  std::int64_t agentPort = 0;
  /// Where an agent would be installed; nullopt for a program that is not installed itself.
  std::optional<std::string> resourceDirectory;
  bool tailnetProgramsInstalled = false;
  bool windowInstalled = false;
  bool controlListens = false;
};

/// All that the status is made from, as it is at one moment.
struct StatusFacts {
  TrayFacts tray;
  TrayHost host = TrayHost::notWanted;
  bool known = false;  ///< whether the agent has been asked yet
  const AgentSnapshot& agent;
  TailnetSummary tailnets;
  std::vector<CommandServerRecord> servers;
};

/// The answer of `status`: the state in words, what needs the user's attention, and notes, which do
/// not. Pure.
CommandStatus statusReport(const StatusFacts& facts);

}  // namespace zephyl
