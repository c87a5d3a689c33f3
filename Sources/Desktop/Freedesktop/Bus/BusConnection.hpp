#pragma once

#include <cerrno>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <sys/types.h>
#include <systemd/sd-bus.h>

#include "System/Concurrency/Clock.hpp"

namespace zephyl {

struct BusRelease {
  void operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }
  void operator()(sd_bus_slot* slot) const { sd_bus_slot_unref(slot); }
  void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};
/// A match, an exported object or a call that waits for its reply; destroying it ends it.
using BusSlot = std::unique_ptr<sd_bus_slot, BusRelease>;
/// None when it could not be made; sending that does nothing.
using BusMessage = std::unique_ptr<sd_bus_message, BusRelease>;

/// Fills a message; after the first failure it does nothing more and `status` returns the error.
class BusWriter {
 public:
  explicit BusWriter(sd_bus_message* message)
      : message_(message), status_(message != nullptr ? 0 : -ENOMEM) {}

  template <typename... Values>
  BusWriter& append(const char* types, Values... values) {
    if (status_ >= 0) status_ = sd_bus_message_append(message_, types, values...);
    return *this;
  }
  BusWriter& open(char type, const char* contents) {
    if (status_ >= 0) status_ = sd_bus_message_open_container(message_, type, contents);
    return *this;
  }
  BusWriter& close() {
    if (status_ >= 0) status_ = sd_bus_message_close_container(message_);
    return *this;
  }
  BusWriter& bytes(const void* data, std::size_t size) {
    if (status_ >= 0) status_ = sd_bus_message_append_array(message_, 'y', data, size);
    return *this;
  }
  /// A negative error number when something could not be written.
  [[nodiscard]] int status() const { return status_; }

 private:
  sd_bus_message* message_;
  int status_;
};

/// Where a method call goes.
struct BusAddress {
  const char* service;
  const char* path;
  const char* interface;
};

/// A live connection to the session bus, as the parts of the adapter use it. Exists from the
/// moment the bus has answered until it is lost. Bus thread only; nothing here waits.
///
/// Handlers must not throw; messages they get are borrowed.
class BusConnection {
 public:
  using Handler = std::function<void(sd_bus_message&)>;
  /// Called with the unique name of a name's owner, at first and on every change; empty for none.
  using OwnerHandler = std::function<void(const std::string& owner)>;
  static constexpr Duration replyTimeout = std::chrono::seconds(10);
  /// The limit of a call whose reply is waited for as long as the connection lasts.
  static constexpr Duration noTimeout = Duration::max();
  /// The bus itself: the name under which it sends.
  static constexpr const char* busName = "org.freedesktop.DBus";

  explicit BusConnection(sd_bus& bus) : bus_(bus) {}
  BusConnection(const BusConnection&) = delete;
  BusConnection& operator=(const BusConnection&) = delete;

  [[nodiscard]] sd_bus& raw() const { return bus_; }
  [[nodiscard]] std::string uniqueName() const;

  [[nodiscard]] BusMessage newCall(const BusAddress& to, const char* method) const;
  [[nodiscard]] BusMessage newSignal(const char* path, const char* interface,
                                     const char* member) const;

  /// Sends a call; the reply, or the error that takes its place, goes to `onReply` unless the slot
  /// is gone by then.
  [[nodiscard]] BusSlot call(const BusMessage& message, Handler onReply,
                             Duration limit = replyTimeout) const;
  /// Sends a signal, or a call whose reply nobody waits for.
  void send(const BusMessage& message) const;

  /// Calls `onSignal` for every signal that matches, from any sender: a signal that is addressed to
  /// this connection arrives whatever sender the rule names. For signals of a service use
  /// `WatchedName::subscribe`.
  [[nodiscard]] BusSlot subscribe(const std::string& matchRule, Handler onSignal) const;
  /// Follows the owner of a name, as the bus itself reports it. Both slots are needed.
  [[nodiscard]] std::vector<BusSlot> watchOwner(const std::string& name,
                                                const OwnerHandler& changed) const;
  /// Asks the bus for the process that owns a name; 0 when there is none.
  [[nodiscard]] BusSlot askForProcess(const std::string& name,
                                      std::function<void(pid_t)> answer) const;
  /// `self` outlives the slot.
  [[nodiscard]] BusSlot addObject(const char* path, const char* interface,
                                  const sd_bus_vtable* table, void* self) const;

 private:
  sd_bus& bus_;
};

[[nodiscard]] inline bool isError(sd_bus_message& reply) {
  return sd_bus_message_is_method_error(&reply, nullptr) > 0;
}
/// "<name>: <message>" of an error reply.
std::string errorText(sd_bus_message& reply);
/// The unique name of the connection that sent a message, or `BusConnection::busName`; empty when
/// the message carries none.
std::string_view senderOf(sd_bus_message& message);
/// The next string of a message; empty when there is none.
std::string readString(sd_bus_message& message);

/// Answers a call with what `fill` writes; what a method handler returns.
template <typename Fill>
int reply(sd_bus_message& call, Fill fill) {
  sd_bus_message* message = nullptr;
  sd_bus_message_new_method_return(&call, &message);
  const BusMessage answer(message);
  BusWriter writer(message);
  fill(writer);
  return writer.status() < 0 ? writer.status() : sd_bus_send(nullptr, message, nullptr);
}

/// Lets a member function answer a method call: it returns a negative error number, or what
/// sending the reply returned.
template <auto Member, typename Owner>
int answerCall(sd_bus_message* call, void* self, sd_bus_error*) {
  try {
    return (static_cast<Owner*>(self)->*Member)(*call);
  } catch (...) {  // nothing may pass through the C library
    return -ENOMEM;
  }
}

/// Lets a member function write the value of a property: it returns the writer's status.
template <auto Member, typename Owner>
int answerProperty(sd_bus*, const char*, const char*, const char* property, sd_bus_message* reply,
                   void* self, sd_bus_error*) {
  try {
    BusWriter writer(reply);
    return (static_cast<Owner*>(self)->*Member)(property, writer);
  } catch (...) {
    return -ENOMEM;
  }
}

}  // namespace zephyl
