#pragma once

#include <optional>

#include "Desktop/Client/TrayAccess.hpp"

namespace zephyl::sandbox::desktop {

/// Returns whether this program was built with a window and a screen is reachable.
bool canShowWindow();

/// Shows the window until the user quits, a signal to end arrives, or another process shows it.
/// Without `access` the window shows that it has no tray. Returns the exit status. Requires
/// `canShowWindow`.
int runWindow(int argumentCount, char** arguments, std::optional<TrayAccess> access);

}  // namespace zephyl::sandbox::desktop
