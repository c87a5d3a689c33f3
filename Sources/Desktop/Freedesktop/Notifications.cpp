#include "Desktop/Freedesktop/Notifications.hpp"

#include <algorithm>
#include <string_view>
#include <utility>

#include "Desktop/Freedesktop/Bus/BusText.hpp"
#include "Desktop/Freedesktop/StatusIcons.hpp"
#include "System/Data/Text.hpp"

namespace zephyl {

namespace {

constexpr const char* serverName = "org.freedesktop.Notifications";
constexpr BusAddress server{serverName, "/org/freedesktop/Notifications", serverName};
constexpr const char* actionKey = "show";

std::set<std::string> readCapabilities(sd_bus_message& reply) {
  std::set<std::string> capabilities;
  if (isError(reply) || sd_bus_message_enter_container(&reply, 'a', "s") <= 0) return capabilities;
  const char* name = nullptr;
  while (sd_bus_message_read_basic(&reply, 's', &name) > 0) capabilities.insert(name);
  return capabilities;
}

/// Returns whether a server shows the default action as a button, beside one that does the same.
bool showsDefaultAction(std::string_view name) {
  return name == "Xfce Notify Daemon" || name == "lxqt-notificationd";
}

}  // namespace

void Notifications::connected(BusConnection& connection) {
  connection_ = &connection;
  server_.watch(connection, [this](const std::string& owner) { serverChanged(owner); });
  signals_ = server_.subscribe(connection, std::string("interface='") + serverName + "'",
                               [this](sd_bus_message& signal) { receive(signal); });
}

/// Another server does not have the posted notifications and may have other capabilities. Waiting
/// notifications are posted to the new one, which the query may have started.
void Notifications::serverChanged(const std::string& owner) {
  if (std::exchange(shownBy_, owner) == owner) return;
  const auto waiting = std::exchange(waiting_, {});
  forget();
  for (const auto& each : waiting) post(each);
}

void Notifications::disconnected() {
  connection_ = nullptr;
  server_.forget();
  signals_.reset();
  shownBy_.clear();
  forget();
}

void Notifications::forget() {
  posted_.clear();
  about_.reset();
  answers_ = {};
  query_.reset();
  waiting_.clear();
}

void Notifications::post(const Notification& notification) {
  if (connection_ == nullptr) return;
  if (!about_) return postWhenServerIsKnown(notification);
  Posted& posted = posted_[notification.identifier];
  posted.removed = false;
  if (posted.call) {
    posted.next = notification;
  } else {
    send(posted, notification);
  }
}

void Notifications::postWhenServerIsKnown(const Notification& notification) {
  std::erase_if(waiting_,
                [&](const auto& each) { return each.identifier == notification.identifier; });
  waiting_.push_back(notification);
  if (!query_) queryCapabilities();
}

void Notifications::queryCapabilities() {
  query_ = connection_->call(connection_->newCall(server, "GetCapabilities"),
                             [this](sd_bus_message& reply) {
                               answers_.capabilities = readCapabilities(reply);
                               queryName();
                             });
}

void Notifications::queryName() {
  const auto answered = [this](sd_bus_message& reply) {
    if (!isError(reply)) answers_.name = readString(reply);
    about_ = std::exchange(answers_, {});
    query_.reset();
    const auto waiting = std::exchange(waiting_, {});
    for (const auto& each : waiting) post(each);
  };
  query_ = connection_->call(connection_->newCall(server, "GetServerInformation"), answered);
}

void Notifications::send(Posted& posted, const Notification& notification) {
  const auto call = connection_->newCall(server, "Notify");
  BusWriter writer(call.get());
  write(writer, posted.id, notification);
  if (writer.status() < 0) return;
  posted.call =
      connection_->call(call, [this, identifier = notification.identifier](sd_bus_message& reply) {
        handleReply(identifier, reply);
      });
}

void Notifications::write(BusWriter& writer, std::uint32_t replaces,
                          const Notification& notification) const {
  const auto body =
      serverCan("body-markup") ? escapedMarkup(notification.body) : visibleLines(notification.body);
  writer.append("susss", "Zephyl", replaces, iconName_.c_str(),
                visibleLines(notification.title).c_str(), body.c_str());
  writeActions(writer, notification);
  constexpr int serversChoice = -1;
  writer.open('a', "{sv}")
      .append("{sv}", "desktop-entry", "s", applicationId)
      .append("{sv}", "sound-name", "s", "message-new-instant")
      .close()
      .append("i", serversChoice);
}

/// Both actions do the same and have the same title, because a server may also show the default
/// one.
void Notifications::writeActions(BusWriter& writer, const Notification& notification) const {
  writer.open('a', "s");
  if (serverCan("actions")) {
    const auto title = visibleLines(notification.actionTitle);
    writer.append("ss", "default", title.empty() ? "Show" : title.c_str());
    if (!title.empty() && !showsDefaultAction(about_->name)) {
      writer.append("ss", actionKey, title.c_str());
    }
  }
  writer.close();
}

void Notifications::handleReply(const std::string& identifier, sd_bus_message& reply) {
  const auto found = posted_.find(identifier);
  if (found == posted_.end()) return;
  Posted& posted = found->second;
  posted.call.reset();
  const bool shown = !isError(reply) && sd_bus_message_read(&reply, "u", &posted.id) > 0;
  if (posted.removed || !shown) {
    if (shown) close(posted.id);
    posted_.erase(found);
  } else if (const auto next = std::exchange(posted.next, std::nullopt)) {
    send(posted, *next);
  }
}

void Notifications::remove(const std::string& identifier) {
  std::erase_if(waiting_, [&](const auto& each) { return each.identifier == identifier; });
  const auto found = posted_.find(identifier);
  if (found == posted_.end()) return;
  if (found->second.call) {
    found->second.removed = true;
    found->second.next.reset();
    return;
  }
  close(found->second.id);
  posted_.erase(found);
}

void Notifications::close(std::uint32_t id) const {
  const auto call = connection_->newCall(server, "CloseNotification");
  BusWriter(call.get()).append("u", id);
  sd_bus_message_set_expect_reply(call.get(), 0);
  connection_->send(call);
}

std::optional<std::string> Notifications::identifierOf(std::uint32_t id) const {
  for (const auto& [identifier, posted] : posted_) {
    if (posted.id == id && id != 0) return identifier;
  }
  return std::nullopt;
}

void Notifications::receive(sd_bus_message& signal) {
  std::uint32_t id = 0;
  if (sd_bus_message_read(&signal, "u", &id) <= 0) return;
  const auto identifier = identifierOf(id);
  if (!identifier) return;
  Posted& posted = posted_.at(*identifier);
  const std::string_view member = sd_bus_message_get_member(&signal);
  if (member == "ActionInvoked") {
    listener_.activated(*identifier, std::exchange(posted.activationToken, {}));
  } else if (member == "ActivationToken") {
    posted.activationToken = readString(signal);
  } else if (member == "NotificationClosed" && !posted.call) {
    posted_.erase(*identifier);
  }
}

bool Notifications::serverCan(const char* capability) const {
  return about_ && about_->capabilities.contains(capability);
}

}  // namespace zephyl
