#include "Desktop/Freedesktop/SingleInstance.hpp"

#include <memory>

#include "Desktop/Freedesktop/Applications.hpp"
#include "Desktop/Freedesktop/Bus/BusText.hpp"
#include "Desktop/Freedesktop/StatusIcons.hpp"
#include "System/Files/Log.hpp"

namespace zephyl {

namespace {

constexpr const char* applicationInterface = "org.freedesktop.Application";
constexpr std::uint32_t inQueue = 2;
constexpr std::uint64_t reopenTimeout = std::chrono::microseconds(std::chrono::seconds(3)).count();

/// Returns the activation token in a call's platform data, or empty if there is none.
std::string readToken(sd_bus_message& call) {
  if (sd_bus_message_enter_container(&call, 'a', "{sv}") <= 0) return {};
  while (sd_bus_message_enter_container(&call, 'e', "sv") > 0) {
    const auto name = readString(call);
    const bool isToken = name == "activation-token" || name == "desktop-startup-id";
    const char* token = nullptr;
    if (isToken && sd_bus_message_read(&call, "v", "s", &token) > 0) return token;
    if (!isToken) sd_bus_message_skip(&call, "v");
    sd_bus_message_exit_container(&call);
  }
  return {};
}

/// Returns the unique name of the owner of the application's bus name if it is `process`, otherwise
/// empty.
std::string ownerIfProcess(pid_t process, sd_bus& bus) {
  sd_bus_creds* raw = nullptr;
  constexpr std::uint64_t asked = SD_BUS_CREDS_PID | SD_BUS_CREDS_UNIQUE_NAME;
  if (sd_bus_get_name_creds(&bus, applicationId, asked, &raw) < 0) return {};
  const std::unique_ptr<sd_bus_creds, decltype(&sd_bus_creds_unref)> owner(raw, sd_bus_creds_unref);
  pid_t pid = 0;
  const char* name = nullptr;
  const bool known =
      sd_bus_creds_get_pid(raw, &pid) >= 0 && sd_bus_creds_get_unique_name(raw, &name) >= 0;
  return known && pid == process ? name : "";
}

}  // namespace

const sd_bus_vtable* SingleInstance::table() {
  static const sd_bus_vtable table[] = {
      SD_BUS_VTABLE_START(0),
      SD_BUS_METHOD("Activate", "a{sv}", "",
                    (answerCall<&SingleInstance::activate, SingleInstance>), 0),
      SD_BUS_METHOD("Open", "asa{sv}", "", (answerCall<&SingleInstance::open, SingleInstance>), 0),
      SD_BUS_METHOD("ActivateAction", "sava{sv}", "",
                    (answerCall<&SingleInstance::activateAction, SingleInstance>), 0),
      SD_BUS_VTABLE_END,
  };
  return table;
}

void SingleInstance::connected(BusConnection& connection) {
  object_ = connection.addObject(applicationPath(applicationId).c_str(), applicationInterface,
                                 table(), this);
  // With a callback, because without one a refusal closes the connection.
  const auto answered = [](sd_bus_message* reply, void*, sd_bus_error*) {
    std::uint32_t outcome = 0;
    if (isError(*reply)) {
      log("could not own the bus name: {}", errorText(*reply));
    } else if (sd_bus_message_read(reply, "u", &outcome) > 0 && outcome == inQueue) {
      log("another process owns the bus name {}; running without it", applicationId);
    }
    return 0;
  };
  sd_bus_slot* slot = nullptr;
  sd_bus_request_name_async(&connection.raw(), &slot, applicationId, SD_BUS_NAME_QUEUE, answered,
                            nullptr);
  name_.reset(slot);
}

void SingleInstance::disconnected() {
  object_.reset();
  name_.reset();
}

int SingleInstance::activate(sd_bus_message& call) {
  return reopen(call);
}

int SingleInstance::open(sd_bus_message& call) {
  sd_bus_message_skip(&call, "as");
  return reopen(call);
}

int SingleInstance::activateAction(sd_bus_message& call) {
  sd_bus_message_skip(&call, "sav");
  return reopen(call);
}

int SingleInstance::reopen(sd_bus_message& call) {
  listener_.reopened(readToken(call));
  return sd_bus_reply_method_return(&call, "");
}

bool SingleInstance::requestReopen(pid_t holder, const std::string& activationToken) {
  const auto bus = Bus::openAndWait();
  if (!bus) return false;
  sd_bus_set_method_call_timeout(bus.get(), reopenTimeout);
  const auto owner = ownerIfProcess(holder, *bus);
  if (owner.empty()) return false;
  const auto call =
      newActivation(BusConnection(*bus), owner.c_str(), applicationId, activationToken);
  return call && sd_bus_call(bus.get(), call.get(), reopenTimeout, nullptr, nullptr) >= 0;
}

}  // namespace zephyl
