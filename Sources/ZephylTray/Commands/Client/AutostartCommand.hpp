#pragma once

#include <string>

namespace zephyl {

/// Switches the start with the session "on" or "off", or prints its "status". Returns the exit
/// status, which for "status" is 0 if it is on and 1 if it is off. Does not require a running tray.
///
/// If systemd runs the session, enables the unit zephyl-tray.service. Otherwise writes an entry to
/// $XDG_CONFIG_HOME/autostart. Removes the other one, so that only one tray is started. systemd
/// counts as running the session if the unit is installed, `systemctl --user` answers, and
/// graphical-session.target is active or no display is set.
int runAutostart(const std::string& operation);

}  // namespace zephyl
