#pragma once

#include <string>

#include "Common/Result.hpp"

namespace zephyl::sandbox::desktop {

/// Where the window takes commands: $ZEPHYL_SANDBOX_DESKTOP_SOCKET, else Zephyl/desktop.sock in
/// $XDG_DATA_HOME or ~/.local/share. Without any of them, a failure.
Result<std::string> socketPath();

}  // namespace zephyl::sandbox::desktop
