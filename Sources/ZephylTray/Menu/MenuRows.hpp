#pragma once

#include <string>
#include <string_view>
#include <utility>

#include "Desktop/Menu.hpp"
#include "ZephylTray/Menu/MenuActions.hpp"

/// The sorts of rows that the tray's menus are made of. Pure.
namespace zephyl::menuRows {

/// Tells something and cannot be chosen.
inline MenuEntry information(std::string key, std::string title) {
  return {.key = std::move(key), .title = std::move(title), .enabled = false};
}

inline MenuEntry command(std::string key, std::string title, TrayAction action) {
  return {
      .key = std::move(key), .title = std::move(title), .action = MenuAction(std::move(action))};
}

/// Opens `submenu` and does nothing else.
inline MenuEntry group(std::string key, std::string title, Menu submenu) {
  return {.key = std::move(key), .title = std::move(title), .submenu = std::move(submenu)};
}

/// A dot line: the row with a dot in the color of its state.
inline MenuEntry attributed(MenuEntry entry, DotColor dot) {
  entry.dot = dot;
  return entry;
}

/// The line before what `following` names.
inline MenuEntry separator(std::string_view following) {
  return {.key = "separator/" + std::string(following), .kind = MenuEntry::Kind::separator};
}

}  // namespace zephyl::menuRows
