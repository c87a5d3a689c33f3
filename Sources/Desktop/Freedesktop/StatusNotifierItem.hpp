#pragma once

#include <functional>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Desktop/Freedesktop/Bus/Bus.hpp"
#include "Desktop/Freedesktop/Bus/WatchedName.hpp"
#include "Desktop/Freedesktop/Menu/BusSignalThrottle.hpp"
#include "Desktop/Freedesktop/Panel.hpp"
#include "Desktop/Freedesktop/StatusIcons.hpp"

namespace zephyl {

/// The status item, exported as org.kde.StatusNotifierItem. Registers with the watcher, by path,
/// when it is shown and whenever a watcher or a host appears. Without a watcher it waits.
///
/// Bus thread only, including the listener.
class StatusNotifierItem final : public Bus::Client {
 public:
  static constexpr const char* path = "/org/ayatana/NotificationItem/zephyl_tray";

  struct Listener {
    /// Called when the user has activated the item instead of its menu.
    std::function<void()> activated;
    /// Called with the activation token of the user's next action on the item or in its menu.
    std::function<void(const std::string& token)> tokenProvided;
  };

  /// The appearance of the item. A value.
  struct Appearance {
    StatusIcon icon = StatusIcon::idle;
    std::string label;        ///< the text beside the icon
    std::string description;  ///< the state in words
  };

  /// `throttle` must outlive it. `icons` is nullopt if the icons are not in the theme.
  StatusNotifierItem(BusSignalThrottle& throttle, std::optional<IconLocation> icons,
                     Listener listener);

  void connected(BusConnection& connection) override;
  void disconnected() override;

  /// Shows the item. Before that it does not register.
  void show();
  void setIcon(StatusIcon icon);
  void setLabel(std::string label);
  void setDescription(std::string description);

 private:
  /// The throttle's numbers for the signals about each part of the appearance.
  struct Sources {
    std::size_t icon;
    std::size_t label;
    std::size_t words;
  };

  /// The program that owns the watcher's name.
  struct WatcherProgram {
    BusSlot query;  ///< asks the bus for it
    Panel panel = Panel::other;
  };

  Sources addSources();
  static const sd_bus_vtable* table();
  int property(const std::string& name, BusWriter& writer);
  [[nodiscard]] std::string text(std::string_view property) const;
  int activate(sd_bus_message& call);
  int openWindow(sd_bus_message& call);
  int ignore(sd_bus_message& call);
  int provideToken(sd_bus_message& call);

  void watchForWatcher();
  /// Identifies the program of a new watcher, then registers.
  void watcherAppeared(const std::string& owner);
  void registerItem();
  /// Sends a signal. Returns the number of sent signals.
  std::size_t sendSignal(const char* name, std::initializer_list<const char*> texts = {}) const;
  [[nodiscard]] std::string title() const;
  /// Returns whether hosts receive the name of the icon, which they prefer to the pixmaps.
  [[nodiscard]] bool hasIconName() const;
  void writeToolTip(BusWriter& writer) const;
  void writePixmaps(BusWriter& writer) const;

  BusSignalThrottle& throttle_;
  const std::optional<IconLocation> icons_;
  const Listener listener_;
  const Sources sources_;

  Appearance appearance_;
  bool shown_ = false;
  bool waitWasLogged_ = false;
  bool wasRead_ = false;  // without a reader no signals are needed

  BusConnection* connection_ = nullptr;
  BusSlot object_;
  WatchedName watcher_{"org.kde.StatusNotifierWatcher"};
  WatcherProgram watcherProgram_;
  WatchedName plasmaShell_{"org.kde.plasmashell"};
  BusSlot hostWatch_;
  BusSlot registration_;
};

}  // namespace zephyl
