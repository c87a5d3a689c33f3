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

/// Notifications through org.freedesktop.Notifications. What cannot be posted is dropped: a
/// notification is never the only way to learn something.
///
/// Bus thread only, with its listener.
class Notifications final : public Bus::Client {
 public:
  struct Listener {
    /// The user has chosen a notification, or its button.
    std::function<void(const std::string& identifier)> activated;
    /// A token with which the next window may come to the front.
    std::function<void(const std::string& token)> tokenProvided;
  };

  /// `iconName` may be empty.
  Notifications(std::string iconName, Listener listener)
      : iconName_(std::move(iconName)), listener_(std::move(listener)) {}

  void connected(BusConnection& connection) override;
  void disconnected() override;

  void post(const Notification& notification);
  void remove(const std::string& identifier);

 private:
  /// One identifier, from its first post until the notification is closed.
  struct Posted {
    std::uint32_t id = 0;  ///< the server's; 0 until it has answered
    BusSlot call;          ///< while the server has not answered
    /// What to show after the answer, when something else was posted meanwhile.
    std::optional<Notification> next;
    bool removed = false;
  };

  void serverChanged(const std::string& owner);
  void forget();
  void postOnceServerIsKnown(const Notification& notification);
  void askForCapabilities();
  void askForName();
  void send(Posted& posted, const Notification& notification);
  void write(BusWriter& writer, std::uint32_t replaces, const Notification& notification) const;
  void answered(const std::string& identifier, sd_bus_message& reply);
  void close(std::uint32_t id) const;
  [[nodiscard]] std::optional<std::string> identifierOf(std::uint32_t id) const;
  void receive(sd_bus_message& signal);
  [[nodiscard]] bool serverCan(const char* capability) const;
  void writeActions(BusWriter& writer, const Notification& notification) const;

  const std::string iconName_;
  const Listener listener_;

  std::map<std::string, Posted> posted_;
  /// What the server says about itself.
  struct Server {
    std::set<std::string> capabilities;
    std::string name;
  };
  std::optional<Server> about_;        // once the server has answered everything
  Server answers_;                     // what it has told so far
  std::vector<Notification> waiting_;  // for that

  BusConnection* connection_ = nullptr;
  WatchedName server_{"org.freedesktop.Notifications"};
  std::string shownBy_;  // the unique name of the server that knows what was posted
  BusSlot signals_;
  BusSlot query_;
};

}  // namespace zephyl
