#pragma once

#include <map>
#include <optional>
#include <string>

#include "Desktop/Menu.hpp"
#include "Desktop/StatusItem.hpp"
#include "ZephylTray/Menu/ServerMenu.hpp"
#include "ZephylTray/Menu/StatusDescription.hpp"
#include "ZephylTray/Registry/Servers.hpp"

namespace zephyl {

/// The displayed state of the updater.
struct UpdateView {
  bool available = false;  ///< whether this installation updates itself
  std::string currentVersion;
  bool installPostponed = false;              ///< postponed until the agent is idle
  std::optional<std::string> pendingVersion;  ///< found and not handled yet
  bool canCheck = false;                      ///< whether a check can begin now
};

/// The state from which the menu is made, at one moment. Refers to the agent's snapshot, which can
/// be large.
struct StatusMenuState {
  const AgentSnapshot& agent;
  bool tailnetProgramsFound = false;  ///< both programs exist
  ServerList servers{{}};
  std::map<std::string, TailnetView, std::less<>> tailnets;  ///< by server id
  UpdateView updates;
};

/// Returns the whole menu, from top to bottom. Control characters in external texts are made
/// visible. Keys are "server/<id>", "grant/<kind>/<path>" and single words. If several rows have
/// the same meaning, the key of the second begins with "grant#2", and so on. Pure.
Menu statusMenu(const StatusMenuState& state);

/// Returns the busy icon if the agent is reachable and working. Pure.
StatusIcon statusIcon(const AgentSnapshot& agent);

/// Returns the text beside the icon: the number of shared folders, or empty while the agent is
/// unreachable. Pure.
std::string statusTitle(const AgentSnapshot& agent);

}  // namespace zephyl
