#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "Desktop/Menu.hpp"
#include "ZephylTray/Agent/AgentRecords.hpp"
#include "ZephylTray/Menu/TailnetView.hpp"
#include "ZephylTray/Registry/ServerEntry.hpp"

namespace zephyl {

/// What the menu says about one server. Refers to values that outlive it.
struct ServerView {
  const ServerEntry& server;
  const TailnetView* tailnet = nullptr;           ///< null when it has no process
  const AgentConnection* connection = nullptr;    ///< null when the agent has none
  std::optional<std::size_t> sharedFolders = {};  ///< none when the agent is not reachable
};

/// A server's row in the menu, a dot line with a submenu. Pure.
MenuEntry serverMenu(std::string key, const ServerView& view);

}  // namespace zephyl
