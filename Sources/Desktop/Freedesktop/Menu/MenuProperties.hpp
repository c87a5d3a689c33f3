#pragma once

#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "Desktop/Freedesktop/Menu/MenuLayout.hpp"

namespace zephyl {

/// How dots are shown to a host: as icons, as colored circles before the label, or as words.
enum class DotStyle {
  icon,
  /// For GNOME, which shows no icon on a row with a submenu, and other icons after the label.
  character,
  /// For GNOME without an emoji font, which draws every circle as the same white box. The state of
  /// a server is appended to its name in words. The texts of other rows contain their state.
  words,
  /// For Qt, which draws the icon of a disabled row in grey, so that its color is lost.
  characterWhenDisabled,
};

/// The bytes of an image.
struct ImageBytes {
  std::string_view bytes;

  bool operator==(const ImageBytes&) const = default;
};
/// A letter that is pressed with Control.
struct Shortcut {
  std::string letter;

  bool operator==(const Shortcut&) const = default;
};

/// A property of a row with its name in com.canonical.dbusmenu.
struct MenuProperty {
  std::string_view name;
  std::variant<std::string, bool, ImageBytes, Shortcut> value;

  bool operator==(const MenuProperty&) const = default;
};

/// Returns the properties of a row that differ from their defaults, and always label and enabled.
/// Returns the root's properties if `entry` is null. Pure.
std::vector<MenuProperty> propertiesOf(const MenuEntry* entry, DotStyle style);

/// Returns the properties of `now` that differ from `before`. Both must be the same row. Pure.
std::vector<MenuProperty> changedProperties(const MenuEntry& before, const MenuEntry& now,
                                            DotStyle style);

/// Returns the names of the properties of `before` that `now` does not have. Both must be the same
/// row. Pure.
std::vector<std::string_view> removedProperties(const MenuEntry& before, const MenuEntry& now,
                                                DotStyle style);

/// Returns a PNG image of 16 by 16 pixels: a disc in the status color. The bytes are static.
std::string_view dotImage(DotColor color);

}  // namespace zephyl
