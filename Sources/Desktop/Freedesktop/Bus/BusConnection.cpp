#include "Desktop/Freedesktop/Bus/BusConnection.hpp"

#include "System/Files/Log.hpp"

namespace zephyl {

namespace {

std::uint64_t microseconds(Duration duration) {
  if (duration == BusConnection::noTimeout) return UINT64_MAX;
  return static_cast<std::uint64_t>(
      std::chrono::duration_cast<std::chrono::microseconds>(duration).count());
}

int deliver(sd_bus_message* message, void* handler, sd_bus_error*) {
  try {
    (*static_cast<BusConnection::Handler*>(handler))(*message);
    return 0;
  } catch (...) {  // exceptions must not pass through the C library
    return -ENOMEM;
  }
}

/// Transfers the ownership of the handler to the slot.
BusSlot adopt(sd_bus_slot* slot, std::unique_ptr<BusConnection::Handler> handler) {
  (void)handler.release();
  sd_bus_slot_set_destroy_callback(slot, [](void* held) {
    std::default_delete<BusConnection::Handler>()(static_cast<BusConnection::Handler*>(held));
  });
  return BusSlot(slot);
}

}  // namespace

std::string BusConnection::uniqueName() const {
  const char* name = nullptr;
  return sd_bus_get_unique_name(&bus_, &name) >= 0 ? name : "";
}

BusMessage BusConnection::newCall(const BusAddress& to, const char* method) const {
  sd_bus_message* message = nullptr;
  sd_bus_message_new_method_call(&bus_, &message, to.service, to.path, to.interface, method);
  return BusMessage(message);
}

BusMessage BusConnection::newSignal(const char* path, const char* interface,
                                    const char* member) const {
  sd_bus_message* message = nullptr;
  sd_bus_message_new_signal(&bus_, &message, path, interface, member);
  return BusMessage(message);
}

BusSlot BusConnection::call(const BusMessage& message, Handler onReply, Duration limit) const {
  if (!message) return nullptr;
  auto handler = std::make_unique<Handler>(std::move(onReply));
  sd_bus_slot* slot = nullptr;
  const int sent =
      sd_bus_call_async(&bus_, &slot, message.get(), deliver, handler.get(), microseconds(limit));
  if (sent < 0) return nullptr;
  return adopt(slot, std::move(handler));
}

void BusConnection::send(const BusMessage& message) const {
  if (message) sd_bus_send(&bus_, message.get(), nullptr);
}

BusSlot BusConnection::subscribe(const std::string& matchRule, Handler onSignal) const {
  auto handler = std::make_unique<Handler>(std::move(onSignal));
  sd_bus_slot* slot = nullptr;
  // A refusal must be received, otherwise the library closes the connection.
  const auto installed = [](sd_bus_message* reply, void*, sd_bus_error*) {
    if (isError(*reply)) log("the session bus refused a subscription: {}", errorText(*reply));
    return 0;
  };
  const int added =
      sd_bus_add_match_async(&bus_, &slot, matchRule.c_str(), deliver, installed, handler.get());
  if (added < 0) return nullptr;
  return adopt(slot, std::move(handler));
}

std::vector<BusSlot> BusConnection::watchOwner(const std::string& name,
                                               const OwnerHandler& changed) const {
  std::vector<BusSlot> slots;
  slots.push_back(
      subscribe("type='signal',sender='org.freedesktop.DBus',path='/org/freedesktop/DBus',"
                "interface='org.freedesktop.DBus',member='NameOwnerChanged',arg0='" +
                    name + "'",
                [changed](sd_bus_message& signal) {
                  if (senderOf(signal) != busName) return;
                  readString(signal);
                  readString(signal);
                  changed(readString(signal));
                }));
  const auto query = newCall(
      {"org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus"}, "GetNameOwner");
  BusWriter(query.get()).append("s", name.c_str());
  slots.push_back(call(query, [changed](sd_bus_message& reply) {
    changed(isError(reply) ? std::string() : readString(reply));
  }));
  return slots;
}

BusSlot BusConnection::queryProcess(const std::string& name,
                                    std::function<void(pid_t)> answer) const {
  const auto query =
      newCall({busName, "/org/freedesktop/DBus", busName}, "GetConnectionUnixProcessID");
  BusWriter(query.get()).append("s", name.c_str());
  return call(query, [answer = std::move(answer)](sd_bus_message& reply) {
    std::uint32_t process = 0;
    if (!isError(reply)) sd_bus_message_read(&reply, "u", &process);
    answer(static_cast<pid_t>(process));
  });
}

BusSlot BusConnection::addObject(const char* path, const char* interface,
                                 const sd_bus_vtable* table, void* self) const {
  sd_bus_slot* slot = nullptr;
  sd_bus_add_object_vtable(&bus_, &slot, path, interface, table, self);
  return BusSlot(slot);
}

std::string errorText(sd_bus_message& reply) {
  const sd_bus_error* error = sd_bus_message_get_error(&reply);
  if (error == nullptr || error->name == nullptr) return "no error";
  return std::string(error->name) + ": " + (error->message != nullptr ? error->message : "");
}

std::string_view senderOf(sd_bus_message& message) {
  const char* sender = sd_bus_message_get_sender(&message);
  return sender != nullptr ? sender : "";
}

std::string readString(sd_bus_message& message) {
  const char* text = nullptr;
  return sd_bus_message_read_basic(&message, 's', &text) > 0 ? text : "";
}

}  // namespace zephyl
