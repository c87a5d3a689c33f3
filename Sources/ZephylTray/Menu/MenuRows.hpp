#pragma once

#include <string>
#include <string_view>
#include <utility>

#include "Desktop/Menu.hpp"
#include "ZephylTray/Menu/MenuActions.hpp"

/// The kinds of rows in the tray's menus. Pure.
namespace zephyl::menuRows {

/// Returns a row that shows a text and cannot be chosen.
inline MenuEntry information(std::string key, std::string title) {
  return {.key = std::move(key), .title = std::move(title), .enabled = false};
}

inline MenuEntry command(std::string key, std::string title, TrayAction action) {
  return {
      .key = std::move(key), .title = std::move(title), .action = MenuAction(std::move(action))};
}

/// Returns a row that opens `submenu`.
inline MenuEntry group(std::string key, std::string title, Menu submenu) {
  return {.key = std::move(key), .title = std::move(title), .submenu = std::move(submenu)};
}

/// Returns the row with a dot in the color of its state.
inline MenuEntry attributed(MenuEntry entry, DotColor dot) {
  entry.dot = dot;
  return entry;
}

/// Returns the separator before the row or section named `following`.
inline MenuEntry separator(std::string_view following) {
  return {.key = "separator/" + std::string(following), .kind = MenuEntry::Kind::separator};
}

}  // namespace zephyl::menuRows
