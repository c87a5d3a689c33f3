#pragma once

#include "Common/Result.hpp"
#include "Desktop/Window/TrayAccess.hpp"

namespace zephyl::sandbox::desktop {

/// Is the window that the tray started: takes commands on its socket, asks the tray for its state
/// once a second, and remembers the screens that the tray wants to see. Ends, in order, on a signal
/// or when the tray is gone.
Result<void> runWindow(TrayAccess access);

}  // namespace zephyl::sandbox::desktop
