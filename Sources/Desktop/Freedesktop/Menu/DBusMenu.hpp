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

/// The status item's menu, published as com.canonical.dbusmenu. Everything that a host asks is
/// answered at once from what is published; AboutToShow says that nothing needs an update.
///
/// A menu that is set is published before anything of it is read, at the latest when the signals
/// about it are due. The signals report the difference to what the hosts were notified of last: the
/// properties of rows that show something else, and a LayoutUpdated for each menu whose own rows
/// came, went or moved, since some hosts read a submenu again only when it is named. For the limits
/// of the pacer the LayoutUpdated signals of one publication count as one. While the menu is open
/// what is published stays as it is, so that nothing changes under the pointer and a click means
/// what was seen.
///
/// Bus thread only, with its listener.
class DBusMenu final : public Bus::Client {
 public:
  static constexpr const char* path = "/org/ayatana/NotificationItem/zephyl_tray/Menu";
  static constexpr Duration layoutInterval = std::chrono::milliseconds(250);

  struct Listener {
    /// `opening` is for `updateAnswered`.
    std::function<void(MenuSession::Event event, unsigned opening)> session;
    std::function<void(const MenuAction& action)> chosen;
    /// Whether the listener cannot keep up. What hosts do meanwhile is dropped.
    std::function<bool()> isBusy;
  };

  /// All outlive it. `iconThemePath` may be empty.
  DBusMenu(Bus& bus, Clock& clock, BusSignalThrottle& pacer, std::string iconThemePath,
           Listener listener);

  void connected(BusConnection& connection) override;
  void disconnected() override;

  void setMenu(std::shared_ptr<const Menu> menu);
  /// The listener has set the menu that `needsUpdate` of this opening asked for, if it differs.
  void updateAnswered(unsigned opening);

 private:
  using Names = std::vector<std::string>;
  /// Notices that a host leaves the bus.
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

  /// False when there is no such row, or the listener is busy.
  bool handle(sd_bus_message& call, std::int32_t id, const std::string& event);
  void click(const MenuRow& row);
  /// A host announces that it shows the root.
  void announced(sd_bus_message& call);
  void notify(const MenuSession::Events& events);
  void watchHost();
  void expireLater();

  /// Publishes the menu that was set, unless what is published must stay as it is.
  void update();
  /// Updates, and sends signals about what has changed.
  std::size_t publish();
  bool sendProperties();
  void sendLayoutUpdated(std::int32_t menu);

  Bus& bus_;
  Clock& clock_;
  BusSignalThrottle& pacer_;
  const std::string iconThemePath_;
  const Listener listener_;
  const std::size_t source_;

  PublishedMenu published_;
  MenuReaders readers_;

  MenuSession session_;
  unsigned opening_ = 0;
  HostWatch host_;  // of the session
  Timer silence_;

  BusConnection* connection_ = nullptr;
  BusSlot object_;
};

}  // namespace zephyl
