#pragma once

#include <string>
#include <string_view>

#include <sys/types.h>

namespace zephyl {

/// The programs that show status items, if they need special handling.
enum class Panel {
  other,
  cinnamon,  ///< shows no symbolic icon outside the usual directories
  lxqt,      ///< shows the title of a tool tip, but not its text
  waybar,    ///< draws an icon of the theme in its own colors, and has a blue background by default
};

/// Returns the panel that corresponds to `program`. Pure.
Panel panelOf(std::string_view program);

/// Returns the kernel's name of a process, at most 15 characters, or empty if there is no such
/// process.
std::string programOf(pid_t process);

}  // namespace zephyl
