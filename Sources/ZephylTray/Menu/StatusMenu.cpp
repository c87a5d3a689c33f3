#include "ZephylTray/Menu/StatusMenu.hpp"

#include <algorithm>
#include <unordered_map>

#include "System/Data/Format.hpp"
#include "System/Data/Text.hpp"
#include "ZephylTray/Agent/ServerConnections.hpp"
#include "ZephylTray/Menu/MenuActions.hpp"
#include "ZephylTray/Menu/MenuRows.hpp"

namespace zephyl {

namespace {

using menuRows::attributed;
using menuRows::command;
using menuRows::group;
using menuRows::information;
using menuRows::separator;

/// Limits for the menu, because the agent may report more and longer exceptions than a panel can
/// show.
constexpr std::size_t maxExceptions = 50;
constexpr std::size_t maxTitleBytes = 256;

std::string exceptionTitle(std::string_view text) {
  return visibleWithBlanks(shortened(text, maxTitleBytes));
}

/// Generates keys for siblings of one kind: "server/<name>", and "server#2/<name>" if the same name
/// is repeated.
class KeySeries {
 public:
  explicit KeySeries(std::string kind) : kind_(std::move(kind)) {}

  std::string next(const std::string& name) {
    const auto count = ++seen_[name];
    return count == 1 ? kind_ + "/" + name : formatText("{}#{}/{}", kind_, count, name);
  }

 private:
  const std::string kind_;
  std::unordered_map<std::string, int> seen_;
};

MenuEntry withShortcut(MenuEntry entry, std::string shortcut) {
  entry.shortcut = std::move(shortcut);
  return entry;
}

/// Returns the agent's activity, or null while the agent is unreachable.
const Activity* currentActivity(const AgentSnapshot& agent) {
  return agent.reachable && agent.activity ? &*agent.activity : nullptr;
}

void addApprovals(const AgentSnapshot& agent, Menu& menu) {
  const auto* const activity = currentActivity(agent);
  if (activity == nullptr || activity->pendingApprovals.empty()) return;
  menu.push_back(command("approvals",
                         "⚠️ " + approvalsNeeded(activity->pendingApprovals.size()) + "…",
                         menuActions::ReviewPendingApprovals{}));
  menu.push_back(separator("open"));
}

void addServers(const StatusMenuState& state, Menu& menu) {
  const auto& status = state.agent.status;
  const auto connections = status ? ServerConnections(*status) : ServerConnections();
  const auto folders = sharedFolderCounts(state.agent.roots, state.servers);
  KeySeries keys("server");
  for (std::size_t index = 0; index < state.servers.size(); ++index) {
    const auto& server = state.servers[index];
    const auto tailnet = state.tailnets.find(server.id);
    menu.push_back(serverMenu(
        keys.next(server.id),
        {.server = server,
         .tailnet = tailnet == state.tailnets.end() ? nullptr : &tailnet->second,
         .connection = connections.of(server),
         .sharedFolders = state.agent.reachable ? std::optional(folders[index]) : std::nullopt}));
  }
}

void addTailnetSection(const StatusMenuState& state, Menu& menu) {
  if (!state.tailnetProgramsFound) return;
  if (state.servers.empty()) {
    menu.push_back(command("join", "Join the Zephyl tailnet…", menuActions::RedeemInvite{}));
  } else {
    addServers(state, menu);
  }
}

void addModel(const AgentSnapshot& agent, Menu& menu) {
  const auto* const activity = currentActivity(agent);
  if (activity == nullptr || !activity->model) return;
  const auto line = modelStatusLine(*activity->model);
  if (!line) return;
  menu.push_back(attributed(information("model", line->text), line->color));
}

Menu grantSubmenu(const EscapeGrant& grant) {
  Menu menu;
  menu.push_back(
      information("kind", grant.kind == "shell" ? "Command exception" : "Path exception"));
  if (grant.grantedBy) {
    menu.push_back(information("grantedBy", "Granted for: " + exceptionTitle(*grant.grantedBy)));
  }
  menu.push_back(separator("revoke"));
  menu.push_back(command("revoke", "Revoke", menuActions::RevokeEscapeGrant{grant}));
  return menu;
}

/// Returns a name made of kind and path, which identify an exception. Escapes the kind, because it
/// is external text and must not be confused with the path.
std::string grantName(const EscapeGrant& grant) {
  std::string name;
  for (const char character : grant.kind) {
    if (character == '%' || character == '/') {
      name += character == '%' ? "%25" : "%2F";
    } else {
      name += character;
    }
  }
  return name + "/" + grant.path;
}

void addExceptions(const AgentSnapshot& agent, Menu& menu) {
  const auto* const activity = currentActivity(agent);
  if (activity == nullptr || activity->escapeGrants.empty()) return;
  const auto& grants = activity->escapeGrants;
  Menu rows;
  const auto shown = std::min(grants.size(), maxExceptions);
  rows.reserve(shown + 3);
  rows.push_back(information("note", "These bypass the folder boundary with no prompt."));
  rows.push_back(separator("grants"));
  KeySeries keys("grant");
  for (std::size_t i = 0; i < shown; ++i) {
    const auto& grant = grants[i];
    rows.push_back(
        group(keys.next(grantName(grant)), exceptionTitle(grant.path), grantSubmenu(grant)));
  }
  if (grants.size() > shown) {
    rows.push_back(information("more", formatText("… and {} more", grants.size() - shown)));
  }
  menu.push_back(separator("exceptions"));
  menu.push_back(group("exceptions", formatText("⚠️ Permanent exceptions ({})", grants.size()),
                       std::move(rows)));
}

void addUpdateControls(const UpdateView& updates, Menu& menu) {
  if (!updates.available) return;
  menu.push_back(separator("updates"));
  menu.push_back(information("version", "Version " + visible(updates.currentVersion)));
  if (updates.installPostponed) {
    menu.push_back(information("postponed", "Update ready — restarts when the agent is idle"));
  } else if (updates.pendingVersion) {
    menu.push_back(command("update",
                           "Update to " + visible(*updates.pendingVersion) + " available…",
                           menuActions::CheckForUpdates{}));
  }
  menu.push_back(command("check", "Check for Updates…", menuActions::CheckForUpdates{}));
  menu.back().enabled = updates.canCheck;
}

}  // namespace

Menu statusMenu(const StatusMenuState& state) {
  Menu menu;
  menu.reserve(state.servers.size() + 13);
  addApprovals(state.agent, menu);
  menu.push_back(
      withShortcut(command("open", "Open Zephyl", menuActions::OpenDesktopWindow{}), "o"));
  menu.push_back(separator("servers"));
  addTailnetSection(state, menu);
  addModel(state.agent, menu);
  addExceptions(state.agent, menu);
  addUpdateControls(state.updates, menu);
  menu.push_back(separator("quit"));
  menu.push_back(withShortcut(command("quit", "Quit Zephyl", menuActions::Quit{}), "q"));
  return menu;
}

StatusIcon statusIcon(const AgentSnapshot& agent) {
  const auto* const activity = currentActivity(agent);
  return activity != nullptr && activity->busy ? StatusIcon::busy : StatusIcon::idle;
}

std::string statusTitle(const AgentSnapshot& agent) {
  return agent.reachable ? " " + std::to_string(agent.roots.size()) : "";
}

}  // namespace zephyl
