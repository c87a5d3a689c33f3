#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "System/Concurrency/Clock.hpp"
#include "System/Files/FileDescriptor.hpp"

namespace zephyl {

class MainLoop;

/// The service manager that started this process as a service of the type "notify", such as systemd
/// (see sd_notify(3)). Without a service manager, no function has an effect.
///
/// Notifications never block. A notification that cannot be sent is logged and dropped. Callable
/// from any thread unless stated otherwise.
class ServiceManager {
 public:
  /// Reads `NOTIFY_SOCKET`, `WATCHDOG_USEC` and `WATCHDOG_PID`. Must be called before
  /// `removePrivateEnvironmentVariables`, which removes them.
  static ServiceManager fromEnvironment();

  [[nodiscard]] bool exists() const { return static_cast<bool>(socket_); }

  /// Reports that the service has started.
  void notifyReady() const { notify("READY=1"); }
  /// Reports that the service is about to execute another program, which will report that it is
  /// ready.
  void notifyReloading() const { notify("RELOADING=1\nWATCHDOG=1"); }
  /// Reports that the service is shutting down.
  void notifyStopping() const { notify("STOPPING=1"); }

  /// Sends watchdog notifications from `mainLoop`, twice within the manager's time limit, until the
  /// returned timer is destroyed. They stop if the main loop hangs. Returns an empty timer, which
  /// causes no wake-ups, if the manager set no limit. This object must outlive the timer. Main
  /// thread only.
  [[nodiscard]] Timer feedWatchdog(MainLoop& mainLoop, Clock& clock) const;

  /// Restores the environment variables for the program that this process executes next. Must be
  /// called when no other thread is left.
  void restoreEnvironment() const;

 private:
  ServiceManager() = default;

  void notify(std::string_view state) const;

  std::string address_;  ///< as in the environment: a path, or "@" and an abstract name
  std::string watchdogLimit_;
  std::optional<Duration> watchdogInterval_;
  FileDescriptor socket_;  // kept open, so that notifications work when descriptors run out
};

}  // namespace zephyl
