#pragma once

#include <string>
#include <string_view>

namespace zephyl {

/// Returns an autostart entry made from an installed desktop entry: without `Hidden`, `TryExec` and
/// `DBusActivatable`, and with `executable`, an absolute path, as the program of `Exec`. An empty
/// desktop entry results in a minimal one. Pure.
std::string autostartEntry(std::string_view desktopEntry, const std::string& executable);

/// Returns whether an entry starts its program. An entry with `Hidden=true` does not. Pure.
bool startsProgram(std::string_view entry);

}  // namespace zephyl
