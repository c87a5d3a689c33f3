#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Desktop/Desktop.hpp"
#include "Desktop/Freedesktop/Bus/Bus.hpp"
#include "Desktop/Freedesktop/Bus/WatchedName.hpp"

namespace zephyl {

/// Notifications through org.freedesktop.Notifications. A notification that cannot be posted is
/// dropped, because it is never the only source of an information.
///
/// Bus thread only, including the listener.
class Notifications final : public Bus::Client {
 public:
  struct Listener {
    /// Called when the user has chosen a notification or its button, with the activation token of
    /// that choice, which may be empty.
    std::function<void(const std::string& identifier, const std::string& token)> activated;
  };

  /// `iconName` may be empty.
  Notifications(std::string iconName, Listener listener)
      : iconName_(std::move(iconName)), listener_(std::move(listener)) {}

  void connected(BusConnection& connection) override;
  void disconnected() override;

  void post(const Notification& notification);
  void remove(const std::string& identifier);

 private:
  /// The state of one identifier, from its first post until the notification is closed.
  struct Posted {
    std::uint32_t id = 0;  ///< the server's id; 0 until it has answered
    BusSlot call;          ///< until the server has answered
    /// The notification to show after the answer, if another one was posted meanwhile.
    std::optional<Notification> next;
    bool removed = false;
    /// The activation token of the user's choice, which the server sends before the choice.
    std::string activationToken;
  };

  void serverChanged(const std::string& owner);
  void forget();
  void postWhenServerIsKnown(const Notification& notification);
  void queryCapabilities();
  void queryName();
  void send(Posted& posted, const Notification& notification);
  void write(BusWriter& writer, std::uint32_t replaces, const Notification& notification) const;
  void handleReply(const std::string& identifier, sd_bus_message& reply);
  void close(std::uint32_t id) const;
  [[nodiscard]] std::optional<std::string> identifierOf(std::uint32_t id) const;
  void receive(sd_bus_message& signal);
  [[nodiscard]] bool serverCan(const char* capability) const;
  void writeActions(BusWriter& writer, const Notification& notification) const;

  const std::string iconName_;
  const Listener listener_;

  std::map<std::string, Posted> posted_;
  /// The properties of the notification server.
  struct Server {
    std::set<std::string> capabilities;
    std::string name;
  };
  std::optional<Server> about_;        // once all queries were answered
  Server answers_;                     // the answers received yet
  std::vector<Notification> waiting_;  // posted when `about_` is known

  BusConnection* connection_ = nullptr;
  WatchedName server_{"org.freedesktop.Notifications"};
  std::string shownBy_;  // the unique name of the server that has the notifications
  BusSlot signals_;
  BusSlot query_;
};

}  // namespace zephyl
