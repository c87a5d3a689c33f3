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

/// Releases objects of the bus library.
struct BusRelease {
  void operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }
  void operator()(sd_bus_slot* slot) const { sd_bus_slot_unref(slot); }
  void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};
/// A match, an exported object or a pending call, which ends when this is destroyed.
using BusSlot = std::unique_ptr<sd_bus_slot, BusRelease>;
/// Null if the message could not be created. Sending null does nothing.
using BusMessage = std::unique_ptr<sd_bus_message, BusRelease>;

/// Fills a message. After the first failure it does nothing, and `status` returns the error.
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
  /// Returns a negative error number if something could not be written.
  [[nodiscard]] int status() const { return status_; }

 private:
  sd_bus_message* message_;
  int status_;
};

/// The destination of a method call.
struct BusAddress {
  const char* service;
  const char* path;
  const char* interface;
};

/// A live connection to the session bus for the parts of the adapter. Exists from the answer of the
/// bus until the connection is lost. Bus thread only. No function waits.
///
/// Handlers must not throw. Their messages are borrowed.
class BusConnection {
 public:
  using Handler = std::function<void(sd_bus_message&)>;
  /// Called with the unique name of a name's owner, initially and after every change. Empty for no
  /// owner.
  using OwnerHandler = std::function<void(const std::string& owner)>;
  static constexpr Duration replyTimeout = std::chrono::seconds(10);
  /// A limit for calls that may take as long as the connection exists.
  static constexpr Duration noTimeout = Duration::max();
  /// The name under which the bus itself sends.
  static constexpr const char* busName = "org.freedesktop.DBus";

  explicit BusConnection(sd_bus& bus) : bus_(bus) {}
  BusConnection(const BusConnection&) = delete;
  BusConnection& operator=(const BusConnection&) = delete;

  [[nodiscard]] sd_bus& raw() const { return bus_; }
  [[nodiscard]] std::string uniqueName() const;

  [[nodiscard]] BusMessage newCall(const BusAddress& to, const char* method) const;
  [[nodiscard]] BusMessage newSignal(const char* path, const char* interface,
                                     const char* member) const;

  /// Sends a call. Calls `onReply` with the reply or the error, unless the slot was destroyed.
  [[nodiscard]] BusSlot call(const BusMessage& message, Handler onReply,
                             Duration limit = replyTimeout) const;
  /// Sends a signal, or a call without waiting for its reply.
  void send(const BusMessage& message) const;

  /// Calls `onSignal` for every signal that matches, from any sender: a signal that is addressed to
  /// this connection arrives regardless of the sender in the rule. For signals of a service, use
  /// `WatchedName::subscribe`.
  [[nodiscard]] BusSlot subscribe(const std::string& matchRule, Handler onSignal) const;
  /// Watches the owner of a name. Both slots must be kept.
  [[nodiscard]] std::vector<BusSlot> watchOwner(const std::string& name,
                                                const OwnerHandler& changed) const;
  /// Queries the process that owns a name. Calls `answer` with 0 if there is none.
  [[nodiscard]] BusSlot queryProcess(const std::string& name,
                                     std::function<void(pid_t)> answer) const;
  /// `self` must outlive the slot.
  [[nodiscard]] BusSlot addObject(const char* path, const char* interface,
                                  const sd_bus_vtable* table, void* self) const;

 private:
  sd_bus& bus_;
};

[[nodiscard]] inline bool isError(sd_bus_message& reply) {
  return sd_bus_message_is_method_error(&reply, nullptr) > 0;
}
/// Returns "<name>: <message>" of an error reply.
std::string errorText(sd_bus_message& reply);
/// Returns the unique name of the sender of a message, or `BusConnection::busName`. Empty if the
/// message contains none.
std::string_view senderOf(sd_bus_message& message);
/// Returns the next string of a message, or empty if there is none.
std::string readString(sd_bus_message& message);

/// Answers a call with what `fill` writes. Returns the result of a method handler.
template <typename Fill>
int reply(sd_bus_message& call, Fill fill) {
  sd_bus_message* message = nullptr;
  sd_bus_message_new_method_return(&call, &message);
  const BusMessage answer(message);
  BusWriter writer(message);
  fill(writer);
  return writer.status() < 0 ? writer.status() : sd_bus_send(nullptr, message, nullptr);
}

/// Adapts a member function to a method handler. It must return a negative error number, or the
/// result of sending the reply.
template <auto Member, typename Owner>
int answerCall(sd_bus_message* call, void* self, sd_bus_error*) {
  try {
    return (static_cast<Owner*>(self)->*Member)(*call);
  } catch (...) {  // exceptions must not pass through the C library
    return -ENOMEM;
  }
}

/// Adapts a member function that writes the value of a property. It must return the writer's
/// status.
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
