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

/// The status item, exported as org.kde.StatusNotifierItem. It registers with the watcher, by
/// path, once it is shown and whenever a watcher or a host appears; without one it waits.
///
/// Bus thread only, with its listener.
class StatusNotifierItem final : public Bus::Client {
 public:
  static constexpr const char* path = "/org/ayatana/NotificationItem/zephyl_tray";

  struct Listener {
    /// The user has asked for the program itself rather than for its menu.
    std::function<void()> activated;
    /// A token with which the next window may come to the front.
    std::function<void(const std::string& token)> tokenProvided;
  };

  /// What the item shows. A value.
  struct Appearance {
    StatusIcon icon = StatusIcon::idle;
    std::string label;        ///< the text beside the icon
    std::string description;  ///< the state in words
  };

  /// The pacer outlives it. No location: the icons are not in the theme.
  StatusNotifierItem(BusSignalThrottle& pacer, std::optional<IconLocation> icons,
                     Listener listener);

  void connected(BusConnection& connection) override;
  void disconnected() override;

  /// Lets it appear; before this it does not register.
  void show();
  void setIcon(StatusIcon icon);
  void setLabel(std::string label);
  void setDescription(std::string description);

 private:
  /// What the pacer calls the signals about each part of the appearance.
  struct Sources {
    std::size_t icon;
    std::size_t label;
    std::size_t words;
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
  /// A watcher has appeared: registers once it is known which program it is.
  void watcherAppeared(const std::string& owner);
  void registerItem();
  /// How many were sent.
  std::size_t sendSignal(const char* name, std::initializer_list<const char*> texts = {}) const;
  [[nodiscard]] std::string title() const;
  /// Whether hosts are given the name of the icon. They prefer it to the pixmaps.
  [[nodiscard]] bool hasIconName() const;
  void writeToolTip(BusWriter& writer) const;
  void writePixmaps(BusWriter& writer) const;

  BusSignalThrottle& pacer_;
  const std::optional<IconLocation> icons_;
  const Listener listener_;
  const Sources sources_;

  Appearance appearance_;
  bool shown_ = false;
  bool toldThatItWaits_ = false;
  bool wasRead_ = false;  // a host that has read nothing needs no signal of a change

  BusConnection* connection_ = nullptr;
  BusSlot object_;
  WatchedName watcher_{"org.kde.StatusNotifierWatcher"};
  BusSlot panelQuery_;
  Panel panel_ = Panel::other;  // the program that owns the watcher's name
  WatchedName plasmaShell_{"org.kde.plasmashell"};
  BusSlot hostWatch_;
  BusSlot registration_;
};

}  // namespace zephyl
