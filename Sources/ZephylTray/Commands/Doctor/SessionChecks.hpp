#pragma once

#include "ZephylTray/Commands/Doctor/Finding.hpp"
#include "ZephylTray/Commands/Server/StatusReport.hpp"

namespace zephyl {

/// The services of the session bus.
struct SessionFacts {
  bool bus = false;            ///< whether a session bus answers
  bool watcher = false;        ///< whether a program registers tray icons
  bool host = false;           ///< whether a program shows tray icons
  bool notifications = false;  ///< whether a notification server runs or can be started
  bool portal = false;         ///< whether a portal runs or can be started
};

/// Queries the session bus over a new connection. Waits for a few seconds at most.
SessionFacts findSession();

/// Determines whether a panel shows the tray's icon. Queries the session bus like `findSession`.
TrayHost findTrayHost();

/// Returns the findings about the session. Nothing is wrong if there is no display. Pure.
Findings checkSession(const SessionFacts& session, bool hasDisplay);

}  // namespace zephyl
