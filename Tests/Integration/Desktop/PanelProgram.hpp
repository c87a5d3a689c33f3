#pragma once

#include <algorithm>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "Desktop/Freedesktop/Bus/BusConnection.hpp"
#include "Desktop/Freedesktop/Menu/DBusMenu.hpp"
#include "Desktop/Freedesktop/StatusNotifierItem.hpp"
#include "Support/Eventually.hpp"

namespace zephyl::test {

/// A row of a menu as a host reads it. Values of types other than text and bool are empty.
struct HostRow {
  std::int32_t id = 0;
  std::map<std::string, std::string> properties;
  std::vector<HostRow> children;

  [[nodiscard]] std::string label() const {
    const auto found = properties.find("label");
    return found == properties.end() ? "" : found->second;
  }
};

/// Another program on the session bus, which owns the names that a test assigns to it: a watcher
/// and host of status items, or a notification server. Used by the test's thread only. Records
/// calls and signals while it waits.
class PanelProgram {
 public:
  static constexpr const char* watcher = "org.kde.StatusNotifierWatcher";
  static constexpr const char* notificationServer = "org.freedesktop.Notifications";

  PanelProgram() {
    sd_bus_open_user(&bus_);
    sd_bus_call_method(bus_, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                       "org.freedesktop.DBus", "AddMatch", nullptr, nullptr, "s", "type='signal'");
  }
  ~PanelProgram() { sd_bus_flush_close_unref(bus_); }
  PanelProgram(const PanelProgram&) = delete;
  PanelProgram& operator=(const PanelProgram&) = delete;

  void own(const char* name) const { sd_bus_request_name(bus_, name, 0); }

  /// Handles messages until `condition` holds. Returns false if it does not hold in time.
  bool runUntil(const std::function<bool()>& condition) {
    return eventually([&] {
      handleMessages();
      return condition();
    });
  }

  /// Returns the paths that were registered as status items.
  [[nodiscard]] const std::vector<std::string>& registered() const { return registered_; }
  /// Returns the number of received signals with this name.
  [[nodiscard]] int signalsOf(const std::string& member) const {
    return static_cast<int>(std::ranges::count(signals_, member));
  }
  /// Returns the titles of the notifications in the order of their ids, which begin with 1.
  [[nodiscard]] const std::vector<std::string>& notifications() const { return notifications_; }
  [[nodiscard]] const std::vector<std::uint32_t>& closedNotifications() const { return closed_; }

  /// Calls a method of the tray. The types and values are those of sd_bus_message_append. Returns
  /// the reply, or null if the call failed; `lastError` returns the name of the error.
  template <typename... Values>
  BusMessage call(const char* path, const char* interface, const char* method, const char* types,
                  Values... values) {
    sd_bus_error error = SD_BUS_ERROR_NULL;
    sd_bus_message* reply = nullptr;
    sd_bus_call_method(bus_, tray_.c_str(), path, interface, method, &error, &reply, types,
                       values...);
    lastError_ = error.name != nullptr ? error.name : "";
    sd_bus_error_free(&error);
    return BusMessage(reply);
  }
  template <typename... Values>
  BusMessage callItem(const char* method, const char* types, Values... values) {
    return call(StatusNotifierItem::path, "org.kde.StatusNotifierItem", method, types, values...);
  }
  template <typename... Values>
  BusMessage callMenu(const char* method, const char* types, Values... values) {
    return call(DBusMenu::path, "com.canonical.dbusmenu", method, types, values...);
  }
  [[nodiscard]] const std::string& lastError() const { return lastError_; }

  /// Returns a property of the item. Its reply is inside the variant. Null if there is none.
  BusMessage property(const char* path, const char* interface, const char* name,
                      const char* contents) {
    auto reply = call(path, "org.freedesktop.DBus.Properties", "Get", "ss", interface, name);
    const bool entered = reply && sd_bus_message_enter_container(reply.get(), 'v', contents) > 0;
    return entered ? std::move(reply) : nullptr;
  }
  BusMessage itemProperty(const char* name, const char* contents) {
    return property(StatusNotifierItem::path, "org.kde.StatusNotifierItem", name, contents);
  }
  std::string itemText(const char* name) {
    const auto reply = itemProperty(name, "s");
    return reply ? readString(*reply) : "(missing)";
  }

  /// Returns a row of the tray's menu and `depth` levels below it.
  HostRow layout(std::int32_t parent = 0, int depth = -1) {
    const auto reply = callMenu("GetLayout", "iias", parent, depth, 0);
    std::uint32_t revision = 0;
    if (!reply || sd_bus_message_read(reply.get(), "u", &revision) <= 0) return {};
    return readRow(*reply);
  }
  /// Returns the id of a row at the top level, or -1.
  std::int32_t idOf(const std::string& label) {
    for (const auto& row : layout().children) {
      if (row.label() == label) return row.id;
    }
    return -1;
  }

  template <typename... Values>
  void emit(const char* path, const char* interface, const char* member, const char* types,
            Values... values) const {
    sd_bus_emit_signal(bus_, path, interface, member, types, values...);
  }

  /// Returns the properties that follow in a message.
  static std::map<std::string, std::string> readProperties(sd_bus_message& message) {
    std::map<std::string, std::string> properties;
    sd_bus_message_enter_container(&message, 'a', "{sv}");
    while (sd_bus_message_enter_container(&message, 'e', "sv") > 0) {
      const auto name = readString(message);
      properties[name] = readVariant(message);
      sd_bus_message_exit_container(&message);
    }
    sd_bus_message_exit_container(&message);
    return properties;
  }

 private:
  static std::string readVariant(sd_bus_message& message) {
    std::string value;
    const char* contents = nullptr;
    sd_bus_message_peek_type(&message, nullptr, &contents);
    const std::string type = contents;
    int flag = 0;
    if (type == "b" && sd_bus_message_read(&message, "v", "b", &flag) > 0) {
      return flag != 0 ? "true" : "false";
    }
    if (type != "s") {
      sd_bus_message_skip(&message, "v");
      return value;
    }
    sd_bus_message_enter_container(&message, 'v', "s");
    value = readString(message);
    sd_bus_message_exit_container(&message);
    return value;
  }

  static HostRow readRow(sd_bus_message& message) {
    HostRow row;
    sd_bus_message_enter_container(&message, 'r', "ia{sv}av");
    sd_bus_message_read(&message, "i", &row.id);
    row.properties = readProperties(message);
    sd_bus_message_enter_container(&message, 'a', "v");
    while (sd_bus_message_enter_container(&message, 'v', "(ia{sv}av)") > 0) {
      row.children.push_back(readRow(message));
      sd_bus_message_exit_container(&message);
    }
    sd_bus_message_exit_container(&message);
    sd_bus_message_exit_container(&message);
    return row;
  }

  void handleMessages() {
    for (;;) {
      sd_bus_message* raw = nullptr;
      if (sd_bus_process(bus_, &raw) <= 0) return;
      if (const BusMessage message(raw); message) handle(*message);
    }
  }

  void handle(sd_bus_message& message) {
    const std::string member = sd_bus_message_get_member(&message);
    if (sd_bus_message_is_signal(&message, nullptr, nullptr) > 0) {
      signals_.push_back(member);
    } else if (member == "RegisterStatusNotifierItem") {
      tray_ = senderOf(message);
      registered_.push_back(readString(message));
      sd_bus_reply_method_return(&message, "");
    } else if (member == "GetCapabilities") {
      sd_bus_reply_method_return(&message, "as", 1, "actions");
    } else if (member == "GetServerInformation") {
      sd_bus_reply_method_return(&message, "ssss", "Test", "Zephyl", "1", "1.2");
    } else if (member == "Notify") {
      notify(message);
    } else if (member == "CloseNotification") {
      std::uint32_t id = 0;
      sd_bus_message_read(&message, "u", &id);
      closed_.push_back(id);
    }
  }

  void notify(sd_bus_message& call) {
    sd_bus_message_skip(&call, "sus");
    notifications_.push_back(readString(call));
    sd_bus_reply_method_return(&call, "u", static_cast<std::uint32_t>(notifications_.size()));
  }

  sd_bus* bus_ = nullptr;
  std::string tray_;  // the unique name of the program that registered
  std::vector<std::string> registered_;
  std::vector<std::string> signals_;
  std::vector<std::string> notifications_;
  std::vector<std::uint32_t> closed_;
  std::string lastError_;
};

}  // namespace zephyl::test
