#include "Desktop/Freedesktop/Bus/SessionServices.hpp"

#include <cstdint>
#include <string_view>

#include "Desktop/Freedesktop/Bus/Bus.hpp"

namespace zephyl {

namespace {

constexpr auto watcherName = "org.kde.StatusNotifierWatcher";
constexpr auto notificationsName = "org.freedesktop.Notifications";
constexpr auto portalName = "org.freedesktop.portal.Desktop";
constexpr std::uint64_t replyTimeout = 1'000'000;  // microseconds

BusMessage callBus(sd_bus& bus, const char* method, const char* name) {
  sd_bus_message* reply = nullptr;
  const int status =
      name != nullptr
          ? sd_bus_call_method(&bus, BusConnection::busName, "/org/freedesktop/DBus",
                               BusConnection::busName, method, nullptr, &reply, "s", name)
          : sd_bus_call_method(&bus, BusConnection::busName, "/org/freedesktop/DBus",
                               BusConnection::busName, method, nullptr, &reply, "");
  return BusMessage(status >= 0 ? reply : nullptr);
}

bool hasOwner(sd_bus& bus, const char* name) {
  const auto reply = callBus(bus, "NameHasOwner", name);
  int owned = 0;
  return reply && sd_bus_message_read(reply.get(), "b", &owned) > 0 && owned != 0;
}

bool canBeStarted(sd_bus& bus, const char* name) {
  const auto reply = callBus(bus, "ListActivatableNames", nullptr);
  if (!reply || sd_bus_message_enter_container(reply.get(), 'a', "s") <= 0) return false;
  const char* each = nullptr;
  while (sd_bus_message_read(reply.get(), "s", &each) > 0) {
    if (std::string_view(each) == name) return true;
  }
  return false;
}

bool hasHost(sd_bus& bus) {
  int registered = 0;
  return sd_bus_get_property_trivial(&bus, watcherName, "/StatusNotifierWatcher", watcherName,
                                     "IsStatusNotifierHostRegistered", nullptr, 'b',
                                     &registered) >= 0 &&
         registered != 0;
}

Bus::Handle connect() {
  auto bus = Bus::openAndWait();
  if (bus) sd_bus_set_method_call_timeout(bus.get(), replyTimeout);
  return bus;
}

}  // namespace

SessionServices SessionServices::find() {
  const auto bus = connect();
  if (!bus) return {};
  SessionServices services{.bus = true};
  services.watcher = hasOwner(*bus, watcherName);
  services.host = services.watcher && hasHost(*bus);
  services.notifications =
      hasOwner(*bus, notificationsName) || canBeStarted(*bus, notificationsName);
  services.portal = hasOwner(*bus, portalName) || canBeStarted(*bus, portalName);
  return services;
}

}  // namespace zephyl
