#pragma once

#include <array>
#include <optional>
#include <span>
#include <string>

#include "Desktop/StatusItem.hpp"

namespace zephyl {

/// The application's identifier on the desktop: bus name, desktop entry, icon.
inline constexpr const char* applicationId = "com.zephyl.tray";

/// Returns the name of an icon in the theme.
const char* iconName(StatusIcon icon);

/// The directory in which hosts find the icons.
struct IconLocation {
  /// A directory outside the theme's usual places, or empty if the icons are in one of them.
  std::string themePath;

  bool operator==(const IconLocation&) const = default;
};

/// Searches the icons in the desktop's directories ($XDG_DATA_HOME and $XDG_DATA_DIRS), then under
/// the prefix of the executable, then beside the executable, where the build puts them. Returns
/// nullopt if there are none. In that case hosts must not receive a name, because some show nothing
/// for an unknown name, not even the pixmap.
std::optional<IconLocation> locateIcons(const std::optional<std::string>& executable);

/// A square icon of `side` pixels: four bytes for each pixel (alpha, red, green, blue), in rows
/// from the top. The pixels are static.
struct IconPixmap {
  int side = 0;
  std::span<const unsigned char> pixels;
};

/// Returns the icon in all sizes, in colors that are visible on dark and light panels.
std::array<IconPixmap, 4> pixmapsOf(StatusIcon icon);

}  // namespace zephyl
