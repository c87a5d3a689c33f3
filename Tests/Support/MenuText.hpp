#pragma once

#include <string>
#include <variant>

#include <boost/type_index.hpp>

#include "Desktop/Menu.hpp"
#include "System/Data/JSON.hpp"
#include "ZephylTray/Menu/MenuActions.hpp"

namespace zephyl::test {

inline std::string nameOf(DotColor color) {
  switch (color) {
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

/// Returns the type of an action and its object.
template <typename Action>
std::string nameOf(const Action& action) {
  const auto qualified = boost::typeindex::type_id<Action>().pretty_name();
  auto name = qualified.substr(qualified.rfind(':') + 1);
  if constexpr (requires { action.serverId; }) name += " " + action.serverId;
  if constexpr (requires { action.grant; }) name += " " + json::compact(json::encode(action.grant));
  return name;
}

inline std::string nameOf(const MenuAction& action) {
  const auto* const known = action.as<TrayAction>();
  if (known == nullptr) return "?";
  return std::visit([](const auto& each) { return nameOf(each); }, *known);
}

/// Returns an entry without its submenu as "key: (dot) title [off] ^letter -> Action object".
inline std::string lineOf(const MenuEntry& entry) {
  std::string line = entry.key + ":";
  if (entry.kind == MenuEntry::Kind::separator) line += " ----";
  if (entry.dot) line += " (" + nameOf(*entry.dot) + ")";
  if (!entry.title.empty()) line += " " + entry.title;
  if (!entry.enabled) line += " [off]";
  if (!entry.shortcut.empty()) line += " ^" + entry.shortcut;
  if (entry.action) line += " -> " + nameOf(*entry.action);
  return line;
}

/// Returns a line for each entry, with submenus indented by two more spaces than their entry.
/// Begins with a newline, like the raw string literals of expected texts.
inline std::string textOf(const Menu& menu, const std::string& indentation = "") {
  std::string text = indentation.empty() ? "\n" : "";
  for (const auto& entry : menu) {
    text += indentation + lineOf(entry) + "\n" + textOf(entry.submenu, indentation + "  ");
  }
  return text;
}

}  // namespace zephyl::test
