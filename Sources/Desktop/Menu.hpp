#pragma once

#include <optional>
#include <string>
#include <vector>

namespace zephyl {

/// The colour of the dot before an entry, which tells a state at a glance.
enum class DotColor { grey, green, orange, red };

/// What choosing an entry asks for: an action by its name, such as "connectServer", and what it is
/// about (a server's id, say; empty when there is nothing to say).
struct MenuAction {
  std::string name;
  std::string object;

  bool operator==(const MenuAction&) const = default;
};

/// One row of a menu. A value: equal entries look and act the same.
struct MenuEntry {
  enum class Kind { item, separator };

  /// What the row means, unique among its siblings: as long as a row means the same thing it keeps
  /// its key, whatever its title says, and another meaning never gets it.
  std::string key;
  Kind kind = Kind::item;
  std::string title;            ///< plain text, without the dot
  std::optional<DotColor> dot;  ///< a dot line: the dot, then the title in bold
  bool enabled = true;          ///< a disabled row is information
  std::string keyEquivalent;    ///< one letter, pressed with Control; empty for none
  std::optional<MenuAction> action;
  std::vector<MenuEntry> submenu;  ///< empty for none

  bool operator==(const MenuEntry&) const = default;
};

using Menu = std::vector<MenuEntry>;

}  // namespace zephyl
