#pragma once

namespace zephyl {

/// The services of the session bus that the tray uses.
struct SessionServices {
  bool bus = false;            ///< whether a session bus answers
  bool watcher = false;        ///< whether a program registers tray icons
  bool host = false;           ///< whether a program shows tray icons
  bool notifications = false;  ///< whether a notification server runs or can be started
  bool portal = false;         ///< whether a portal runs or can be started

  /// Queries the session bus over a new connection. Waits for a few seconds at most. Callable from
  /// any thread.
  static SessionServices find();
};

}  // namespace zephyl
