#pragma once

#include <optional>
#include <string>
#include <vector>

/// The locations of the user's directories. Each is determined on every call, from the environment
/// and the password database. No directory is created. An empty variable counts as unset. Callable
/// from any thread.
namespace zephyl::directories {

/// Returns `$HOME`, else the password database's entry, else "/".
std::string home();
/// Returns `$XDG_DATA_HOME` if it is an absolute path, else home/.local/share. Returns nullopt if
/// the home directory is unknown, too.
std::optional<std::string> applicationSupport();
/// Returns where programs look for shared data such as icons: `applicationSupport`, then the
/// directories in `$XDG_DATA_DIRS`, else /usr/local/share and /usr/share.
std::vector<std::string> data();
/// Returns `$XDG_CONFIG_HOME` if it is an absolute path, else home/.config.
std::string configuration();
/// Returns `$TMPDIR`, else /tmp.
std::string temporary();

}  // namespace zephyl::directories
