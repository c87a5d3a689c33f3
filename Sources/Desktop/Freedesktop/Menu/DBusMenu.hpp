#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Desktop/Freedesktop/Bus/Bus.hpp"
#include "Desktop/Freedesktop/Menu/BusSignalThrottle.hpp"
#include "Desktop/Freedesktop/Menu/MenuReaders.hpp"
#include "Desktop/Freedesktop/Menu/MenuSession.hpp"
#include "Desktop/Freedesktop/Menu/PublishedMenu.hpp"

namespace zephyl {

/// The status item's menu, published as com.canonical.dbusmenu. All queries of hosts are answered
/// at once from the published menu. AboutToShow always answers that no update is needed.
///
/// A new menu is published before any part of it is read, at the latest when its signals are due.
/// The signals report the differences since the last notification of the hosts: the changed
/// properties of rows, and a LayoutUpdated for each menu whose own rows were added, removed or
/// moved, because some hosts read a submenu again only when it is named. For the limits of the
/// throttle, the LayoutUpdated signals of one publication count as one. While the menu is open, the
/// published menu does not change, so that nothing moves under the pointer and a click has the
/// meaning that was shown.
///
/// Bus thread only, including the listener.
class DBusMenu final : public Bus::Client {
 public:
  static constexpr const char* path = "/org/ayatana/NotificationItem/zephyl_tray/Menu";
  static constexpr Duration layoutInterval = std::chrono::milliseconds(250);

  struct Listener {
    /// Called with an event of the session. `opening` must be passed to `updateAnswered`.
    std::function<void(MenuSession::Event event, unsigned opening)> session;
    std::function<void(const MenuAction& action)> chosen;
    /// Returns whether the listener is overloaded. Events of hosts are dropped meanwhile.
    std::function<bool()> isBusy;
  };

  /// All references must outlive it. `iconThemePath` may be empty.
  DBusMenu(Bus& bus, Clock& clock, BusSignalThrottle& throttle, std::string iconThemePath,
           Listener listener);

  void connected(BusConnection& connection) override;
  void disconnected() override;

  void setMenu(std::shared_ptr<const Menu> menu);
  /// Must be called when the listener has set the menu that `needsUpdate` of this opening
  /// requested.
  void updateAnswered(unsigned opening);

 private:
  using Names = std::vector<std::string>;
  /// Watches whether a host leaves the bus.
  struct HostWatch {
    std::string name;
    std::vector<BusSlot> slots;
  };

  static const sd_bus_vtable* table();
  int getLayout(sd_bus_message& call);
  int getGroupProperties(sd_bus_message& call);
  int getProperty(sd_bus_message& call);
  int event(sd_bus_message& call);
  int eventGroup(sd_bus_message& call);
  int aboutToShow(sd_bus_message& call);
  int aboutToShowGroup(sd_bus_message& call);
  int property(const std::string& name, BusWriter& writer);

  /// Returns false if there is no such row or the listener is busy.
  bool handle(sd_bus_message& call, std::int32_t id, const std::string& event);
  void click(const MenuRow& row);
  /// Handles that a host announces to show the root.
  void announced(sd_bus_message& call);
  void notify(const MenuSession::Events& events);
  void watchHost();
  void expireLater();

  /// Publishes the menu that was set, unless the published menu must not change.
  void update();
  /// Updates and sends the signals about changes.
  std::size_t publish();
  bool sendProperties();
  void sendLayoutUpdated(std::int32_t menu);

  Bus& bus_;
  Clock& clock_;
  BusSignalThrottle& throttle_;
  const std::string iconThemePath_;
  const Listener listener_;
  const std::size_t source_;

  PublishedMenu published_;
  MenuReaders readers_;

  MenuSession session_;
  unsigned opening_ = 0;
  HostWatch host_;  // the host of the session
  Timer silence_;

  BusConnection* connection_ = nullptr;
  BusSlot object_;
};

}  // namespace zephyl
