#pragma once

#include <functional>
#include <string>

#include <sys/types.h>

#include "Desktop/Freedesktop/Bus/Bus.hpp"

namespace zephyl {

/// Owns the application's bus name and exports org.freedesktop.Application, so that starting the
/// program again reaches the running one. Does not decide whether another tray runs. If another
/// process has the name, this one runs without it and gets it when it becomes free.
///
/// Bus thread only, including the listener.
class SingleInstance final : public Bus::Client {
 public:
  struct Listener {
    /// Called when the user has started the program again, with the activation token of that
    /// start, which may be empty.
    std::function<void(const std::string& token)> reopened;
  };

  explicit SingleInstance(Listener listener) : listener_(std::move(listener)) {}

  void connected(BusConnection& connection) override;
  void disconnected() override;

  /// Asks the process that holds the lock to open its window, if it owns the bus name. Called by a
  /// second start. Uses a separate connection and waits for at most a few seconds. Returns whether
  /// the process was asked. The token, which may be empty, permits the window to come to the front.
  static bool requestReopen(pid_t holder, const std::string& activationToken);

 private:
  static const sd_bus_vtable* table();
  int activate(sd_bus_message& call);
  int open(sd_bus_message& call);
  int activateAction(sd_bus_message& call);
  int reopen(sd_bus_message& call);

  const Listener listener_;
  BusSlot object_;
  BusSlot name_;
};

}  // namespace zephyl
