#pragma once

#include <string>
#include <string_view>

#include <sys/types.h>

namespace zephyl {

/// The programs that show status items, as far as they need something that the others do not.
enum class Panel {
  other,
  cinnamon,  ///< draws nothing for a symbolic icon that is not in one of the usual directories
  lxqt,      ///< shows the title of a tool tip, but not its text
  waybar,    ///< draws an icon of the theme in its own colors, and has a blue background by default
};

/// Returns the panel that `program` is. Pure.
Panel panelOf(std::string_view program);

/// Returns the name of a process as the kernel keeps it, with at most 15 characters; empty when
/// there is no such process.
std::string programOf(pid_t process);

}  // namespace zephyl
