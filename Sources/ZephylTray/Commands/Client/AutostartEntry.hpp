#pragma once

#include <string>
#include <string_view>

namespace zephyl {

/// Returns the autostart entry made from an installed desktop entry: the same without `Hidden`,
/// `TryExec` and `DBusActivatable`, with `executable`, an absolute path, as the program of `Exec`.
/// Without an installed entry, an empty one makes a short one. Pure.
std::string autostartEntry(std::string_view desktopEntry, const std::string& executable);

/// Whether an entry starts its program, which one with `Hidden=true` does not. Pure.
bool startsProgram(std::string_view entry);

}  // namespace zephyl
