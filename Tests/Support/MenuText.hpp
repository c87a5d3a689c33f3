#pragma once

#include <string>

#include "Desktop/Menu.hpp"

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

/// All that an entry says, its submenu left out: "key: (dot) title [off] ^letter -> action object".
inline std::string lineOf(const MenuEntry& entry) {
  std::string line = entry.key + ":";
  if (entry.kind == MenuEntry::Kind::separator) line += " ----";
  if (entry.dot) line += " (" + nameOf(*entry.dot) + ")";
  if (!entry.title.empty()) line += " " + entry.title;
  if (!entry.enabled) line += " [off]";
  if (!entry.keyEquivalent.empty()) line += " ^" + entry.keyEquivalent;
  if (entry.action) line += " -> " + entry.action->name;
  if (entry.action && !entry.action->object.empty()) line += " " + entry.action->object;
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
