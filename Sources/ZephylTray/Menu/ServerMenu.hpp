#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "Desktop/Menu.hpp"
#include "ZephylTray/Agent/AgentRecords.hpp"
#include "ZephylTray/Menu/TailnetView.hpp"
#include "ZephylTray/Registry/ServerEntry.hpp"

namespace zephyl {

/// The displayed state of one server. Refers to values that must outlive it.
struct ServerView {
  const ServerEntry& server;
  const TailnetView* tailnet = nullptr;           ///< null if it has no process
  const AgentConnection* connection = nullptr;    ///< null if the agent has none
  std::optional<std::size_t> sharedFolders = {};  ///< nullopt while the agent is unreachable
};

/// Returns a server's row in the menu: a dot and a submenu. Pure.
MenuEntry serverMenu(std::string key, const ServerView& view);

}  // namespace zephyl
