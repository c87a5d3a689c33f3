#pragma once

#include <functional>
#include <string>

#include <sys/types.h>

#include "Desktop/Freedesktop/Bus/Bus.hpp"

namespace zephyl {

/// Owns the application's bus name and exports org.freedesktop.Application, so that the user's
/// starting it again reaches the program that runs. Whether another tray runs is not decided
/// here; when another process has the name, this one runs without it, and gets it when it is free.
///
/// Bus thread only, with its listener.
class SingleInstance final : public Bus::Client {
 public:
  struct Listener {
    std::function<void()> reopened;
    /// A token with which the next window may come to the front.
    std::function<void(const std::string& token)> tokenProvided;
  };

  explicit SingleInstance(Listener listener) : listener_(std::move(listener)) {}

  void connected(BusConnection& connection) override;
  void disconnected() override;

  /// For a second start: asks the process that has the lock to open its window, when it is the
  /// one that owns the name. Over a connection of its own, for a few seconds at most; whether it
  /// could be asked. The token, when there is one, lets the window come to the front.
  static bool askToReopen(pid_t holder, const std::string& activationToken);

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
