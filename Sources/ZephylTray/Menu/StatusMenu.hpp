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

/// What the updater shows of itself.
struct UpdateView {
  bool available = false;  ///< whether this program updates itself at all
  std::string currentVersion;
  bool installPostponed = false;              ///< until the agent is idle
  std::optional<std::string> pendingVersion;  ///< found and not yet dealt with
  bool canCheck = false;                      ///< a check can begin now
};

/// All that the menu is made from, as it is at one moment. Refers to the agent's view, which can
/// be large.
struct StatusMenuState {
  const AgentSnapshot& agent;
  bool tailnetProgramsFound = false;  ///< both of them
  ServerList servers{{}};
  std::map<std::string, TailnetView, std::less<>> tailnets;  ///< by server id
  UpdateView updates;
};

/// The whole menu, from top to bottom. What comes from outside is shown with its control
/// characters made visible. Keys are "server/<id>", "grant/<kind>/<path>" and single words; of
/// several rows that mean the same, the second begins with "grant#2", and so on. Pure.
Menu statusMenu(const StatusMenuState& state);

/// Busy while the agent answers and works. Pure.
StatusIcon statusIcon(const AgentSnapshot& agent);

/// The text beside the icon: how many folders are shared; empty while the agent does not answer.
/// Pure.
std::string statusTitle(const AgentSnapshot& agent);

}  // namespace zephyl
