#pragma once

#include <string>

#include "Desktop/Menu.hpp"
#include "System/Data/JSON.hpp"
#include "ZephylTray/Menu/MenuActions.hpp"

namespace zephyl::test {

inline std::string nameOf(DotColor colour) {
  switch (colour) {
    case DotColor::grey:
      return "grey";
    case DotColor::green:
      return "green";
    case DotColor::orange:
      return "orange";
    case DotColor::red:
      return "red";
  }
  return "?";
}

inline std::string nameOf(const menuActions::RevokeEscapeGrant& action) {
  return "RevokeEscapeGrant " + json::compact(json::encode(action.grant));
}
inline std::string nameOf(const menuActions::OpenServerInBrowser& action) {
  return "OpenServerInBrowser " + action.serverId;
}
inline std::string nameOf(const menuActions::ConnectServer& action) {
  return "ConnectServer " + action.serverId;
}
inline std::string nameOf(const menuActions::RenameServer& action) {
  return "RenameServer " + action.serverId;
}
inline std::string nameOf(const menuActions::RemoveServer& action) {
  return "RemoveServer " + action.serverId;
}
inline std::string nameOf(menuActions::ReviewPendingApprovals) {
  return "ReviewPendingApprovals";
}
inline std::string nameOf(menuActions::OpenDesktopWindow) {
  return "OpenDesktopWindow";
}
inline std::string nameOf(menuActions::RedeemInvite) {
  return "RedeemInvite";
}
inline std::string nameOf(menuActions::ShowTailnetLogs) {
  return "ShowTailnetLogs";
}
inline std::string nameOf(menuActions::RestartTailnet) {
  return "RestartTailnet";
}
inline std::string nameOf(menuActions::CheckForUpdates) {
  return "CheckForUpdates";
}
inline std::string nameOf(menuActions::Quit) {
  return "Quit";
}

/// The action's type, and what it is about.
inline std::string nameOf(const MenuAction& action) {
  const auto* const known = action.as<TrayAction>();
  if (known == nullptr) return "?";
  return std::visit([](const auto& each) { return nameOf(each); }, *known);
}

/// All that an entry says, its submenu left out: "key: (dot) title [off] ^letter -> Action object".
inline std::string lineOf(const MenuEntry& entry) {
  std::string line = entry.key + ":";
  if (entry.kind == MenuEntry::Kind::separator) line += " ----";
  if (entry.dot) line += " (" + nameOf(*entry.dot) + ")";
  if (!entry.title.empty()) line += " " + entry.title;
  if (!entry.enabled) line += " [off]";
  if (!entry.keyEquivalent.empty()) line += " ^" + entry.keyEquivalent;
  if (entry.action) line += " -> " + nameOf(*entry.action);
  return line;
}

/// A line for each entry, submenus indented by two spaces more than their entry. Begins with a
/// newline, as a raw string literal does that holds the expected text.
inline std::string textOf(const Menu& menu, const std::string& indentation = "") {
  std::string text = indentation.empty() ? "\n" : "";
  for (const auto& entry : menu) {
    text += indentation + lineOf(entry) + "\n" + textOf(entry.submenu, indentation + "  ");
  }
  return text;
}

}  // namespace zephyl::test
