#pragma once

#include <optional>

#include "Desktop/Client/TrayAccess.hpp"

namespace zephyl::sandbox::desktop {

/// Returns whether this program was built with a window and there is a screen to show it on.
bool canShowWindow();

/// Shows the window until it is quit, a signal asks for the end, or another process shows it.
/// Without `access` the window says that it has no tray. Returns the exit status. Requires
/// `canShowWindow`.
int runWindow(int argumentCount, char** arguments, std::optional<TrayAccess> access);

}  // namespace zephyl::sandbox::desktop
