#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "System/Concurrency/Clock.hpp"
#include "System/Files/FileDescriptor.hpp"

namespace zephyl {

class MainLoop;

/// The service manager that started this process as a service of the type "notify", for example the
/// systemd of the user's session; see sd_notify(3). Without a service manager every function does
/// nothing.
///
/// A notification never blocks. One that cannot be sent is logged and lost. Callable from any
/// thread unless stated otherwise.
class ServiceManager {
 public:
  /// Reads `NOTIFY_SOCKET`, `WATCHDOG_USEC` and `WATCHDOG_PID`. Must be called before
  /// `removePrivateEnvironmentVariables`, which keeps them from children.
  static ServiceManager fromEnvironment();

  [[nodiscard]] bool exists() const { return static_cast<bool>(socket_); }

  /// The service has started.
  void notifyReady() const { notify("READY=1"); }
  /// The service executes another program in its process, which will notify that it is ready.
  void notifyReloading() const { notify("RELOADING=1\nWATCHDOG=1"); }
  /// The service shuts down.
  void notifyStopping() const { notify("STOPPING=1"); }

  /// Notifies from `mainLoop` that the service works, twice in the time after which the manager
  /// would kill it, until the returned timer is destroyed. A main loop that hangs stops the
  /// notifications. Returns an empty timer, which costs no wake-ups, if the manager watches
  /// nothing. This object outlives the timer. Main thread only.
  [[nodiscard]] Timer feedWatchdog(MainLoop& mainLoop, Clock& clock) const;

  /// Puts the variables back for the program that this process executes next. Must be called when
  /// no other thread is left.
  void restoreEnvironment() const;

 private:
  ServiceManager() = default;

  void notify(std::string_view state) const;

  std::string address_;  ///< as in the environment: a path, or "@" and an abstract name
  std::string watchdogLimit_;
  std::optional<Duration> watchdogInterval_;
  FileDescriptor socket_;  // kept open, so that a shortage of descriptors does not end the service
};

}  // namespace zephyl
