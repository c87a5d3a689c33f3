#pragma once

#include <array>
#include <optional>
#include <span>
#include <string>

#include "Desktop/StatusItem.hpp"

namespace zephyl {

/// The application's identifier on the desktop: bus name, desktop entry, icon.
inline constexpr const char* applicationId = "com.zephyl.tray";

/// The name of an icon in the theme.
const char* iconName(StatusIcon icon);

/// Where hosts find the icons by name.
struct IconLocation {
  /// Outside the theme's usual places; empty when they are in one of them.
  std::string themePath;

  bool operator==(const IconLocation&) const = default;
};

/// Looks for the icons where the desktop looks for them ($XDG_DATA_HOME and $XDG_DATA_DIRS), then
/// under the prefix that the executable is installed in, then beside the executable, where the
/// build puts them. None when they are nowhere: then no name may be given to a host, for some
/// show nothing for a name that they do not find, not even the picture that comes with it.
std::optional<IconLocation> locateIcons(const std::optional<std::string>& executable);

/// An icon drawn `side` pixels square: four bytes for each pixel (alpha, red, green, blue), rows
/// from the top. Lives as long as the program.
struct IconPixmap {
  int side = 0;
  std::span<const unsigned char> pixels;
};

/// Returns the icon in all sizes, in colors that show on dark and light panels.
std::array<IconPixmap, 4> pixmapsOf(StatusIcon icon);

}  // namespace zephyl
