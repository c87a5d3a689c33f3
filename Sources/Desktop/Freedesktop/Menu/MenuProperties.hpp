#pragma once

#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "Desktop/Freedesktop/Menu/MenuLayout.hpp"

namespace zephyl {

/// How a host is shown dots: as icons, as colored circles before the label, or as words.
enum class DotStyle {
  icon,
  /// For GNOME, which draws no icon on a row with a submenu, and any other icon behind the label.
  character,
  /// For GNOME without a font for emoji, which draws every circle as the same white box: the state
  /// of a server stands in words behind its name. The texts of other rows say their state anyway.
  words,
  /// For Qt, which greys the icon of a disabled row, so that its color is lost.
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

/// A property of a row, as com.canonical.dbusmenu names it.
struct MenuProperty {
  std::string_view name;
  std::variant<std::string, bool, ImageBytes, Shortcut> value;

  bool operator==(const MenuProperty&) const = default;
};

/// All properties of a row that differ from their defaults, and label and enabled in any case.
/// No entry: those of the root. Pure.
std::vector<MenuProperty> propertiesOf(const MenuEntry* entry, DotStyle style);

/// Those of `now` that are not the same in `before`, both of one row. Pure.
std::vector<MenuProperty> changedProperties(const MenuEntry& before, const MenuEntry& now,
                                            DotStyle style);

/// The names of the properties of `before` that `now` does not have, both of one row. Pure.
std::vector<std::string_view> removedProperties(const MenuEntry& before, const MenuEntry& now,
                                                DotStyle style);

/// A PNG image, 16 pixels square: a disc in the status color. Lives as long as the program.
std::string_view dotImage(DotColor color);

}  // namespace zephyl
