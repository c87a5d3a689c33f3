#include "ZephylTray/Menu/ServerMenu.hpp"

#include "System/Data/Text.hpp"
#include "ZephylTray/Menu/MenuActions.hpp"
#include "ZephylTray/Menu/MenuRows.hpp"
#include "ZephylTray/Menu/StatusDescription.hpp"

namespace zephyl {

namespace {

using menuRows::attributed;
using menuRows::command;
using menuRows::group;
using menuRows::information;
using menuRows::separator;

bool usable(const ServerView& view) {
  return view.tailnet != nullptr && view.tailnet->usable();
}

bool running(const ServerView& view) {
  return view.tailnet != nullptr && view.tailnet->running;
}

bool enrolled(const ServerView& view) {
  return view.connection != nullptr && view.connection->state == AgentState::enrolled;
}

DotColor color(const ServerView& view) {
  if (!view.server.enabled) return DotColor::grey;
  if (usable(view)) return DotColor::green;
  return running(view) ? DotColor::orange : DotColor::red;
}

std::string stateText(const ServerView& view) {
  if (!view.server.enabled) return "Disabled";
  if (usable(view)) return "Connected";
  if (running(view)) return "Starting…";
  if (view.tailnet != nullptr && view.tailnet->state.stalledReason) {
    return visible(*view.tailnet->state.stalledReason);
  }
  return "Disconnected";
}

std::string folderText(const ServerView& view) {
  if (!view.sharedFolders) return "Agent not running";
  return folderCount(*view.sharedFolders) + " shared";
}

void addAddress(const ServerView& view, Menu& menu) {
  const bool unresolved = view.tailnet != nullptr && view.tailnet->state.unresolvedTarget;
  if (!view.server.addressURL()) {
    menu.push_back(information(
        "address", unresolved ? "Zephyl not found on this network" : "Looking for Zephyl…"));
  }
  if (view.tailnet == nullptr || !view.tailnet->state.boundAddress) return;
  const auto& state = view.tailnet->state;
  menu.push_back(command("browser", "Open in Browser  (" + visible(*state.boundAddress) + ")",
                         menuActions::OpenServerInBrowser(view.server.id)));
  if (state.activeRelay) {
    menu.push_back(information("relay", "via " + visible(*state.activeRelay)));
  }
}

void addActions(const ServerView& view, Menu& menu) {
  const auto& id = view.server.id;
  if (!view.server.enabled) {
    menu.push_back(command("connect", "Connect", menuActions::ConnectServer(id)));
  }
  menu.push_back(command("rename", "Rename…", menuActions::RenameServer(id)));
  menu.push_back(command("remove", "Remove Server…", menuActions::RemoveServer(id)));
  if (view.tailnet != nullptr && view.tailnet->hasLog) {
    menu.push_back(command("logs", "Tailnet Logs…", menuActions::ShowTailnetLogs{}));
  }
  menu.push_back(command("restart", "Restart Tailnet", menuActions::RestartTailnet{}));
}

Menu serverSubmenu(const ServerView& view) {
  Menu menu;
  menu.reserve(10);
  menu.push_back(information("state", stateText(view)));
  if (view.server.enabled && usable(view) && !enrolled(view)) {
    menu.push_back(information("enrolment", "Folders here aren't shared with it"));
  }
  addAddress(view, menu);
  menu.push_back(information("folders", folderText(view)));
  menu.push_back(separator("actions"));
  addActions(view, menu);
  return menu;
}

}  // namespace

MenuEntry serverMenu(std::string key, const ServerView& view) {
  return attributed(group(std::move(key), visible(view.server.displayName()), serverSubmenu(view)),
                    color(view));
}

}  // namespace zephyl
