#pragma once

#include "ZephylTray/Commands/Doctor/Finding.hpp"
#include "ZephylTray/Commands/Server/StatusReport.hpp"

namespace zephyl {

/// What the session bus says about the desktop.
struct SessionFacts {
  bool bus = false;            ///< one answers
  bool watcher = false;        ///< a program registers tray icons
  bool host = false;           ///< a program shows them
  bool notifications = false;  ///< a program shows notifications, or can be started for that
  bool portal = false;         ///< likewise for the folder chooser
};

/// Asks the session bus, over a connection of its own. Waits for a few seconds at most.
SessionFacts findSession();

/// Whether a panel shows the tray's icon; asks the session bus like `findSession`.
TrayHost findTrayHost();

/// Without a display nothing about the session is wrong. Pure.
Findings checkSession(const SessionFacts& session, bool hasDisplay);

}  // namespace zephyl
