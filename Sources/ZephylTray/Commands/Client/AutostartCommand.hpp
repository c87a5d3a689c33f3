#pragma once

#include <string>

namespace zephyl {

/// Switches the start with the session "on" or "off", or prints its "status"; returns the exit
/// status, which for "status" is 0 if it is on and 1 if it is off. Works without a running tray.
///
/// Where systemd runs the session, the unit zephyl-tray.service is enabled; elsewhere an entry is
/// written to $XDG_CONFIG_HOME/autostart. Never both, so that one tray is started: what the other
/// way has left is removed. systemd runs the session if the unit is installed, `systemctl --user`
/// answers, and graphical-session.target is active or there is no display to judge by.
int runAutostart(const std::string& operation);

}  // namespace zephyl
