#pragma once

#include <optional>
#include <string>
#include <vector>

/// Where things of the user are. Each is worked out afresh on every call, from the environment
/// and the password database; none of them is created here. An empty variable counts as unset.
/// Callable from any thread.
namespace zephyl::directories {

/// `$HOME`, else the password database's entry, else "/".
std::string home();
/// `$XDG_DATA_HOME` when it is an absolute path, else home/.local/share; none when the home
/// directory is not known either.
std::optional<std::string> applicationSupport();
/// Where programs look for shared data such as icons, the user's own directory first: that one,
/// then those in `$XDG_DATA_DIRS`, else /usr/local/share and /usr/share.
std::vector<std::string> data();
/// `$XDG_CONFIG_HOME` when it is an absolute path, else home/.config.
std::string configuration();
/// `$TMPDIR`, else /tmp.
std::string temporary();

}  // namespace zephyl::directories
