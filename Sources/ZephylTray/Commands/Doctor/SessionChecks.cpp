#include "ZephylTray/Commands/Doctor/SessionChecks.hpp"

#include <cstdlib>

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

/// Returns the finding about a service that a desktop should have, but a machine without one need
/// not.
Finding part(const char* check, bool exists, bool hasDisplay, const char* there,
             const char* missing, const char* advice) {
  if (exists) return {.check = check, .state = FindingState::ok, .message = there};
  if (!hasDisplay) return {.check = check, .state = FindingState::note, .message = missing};
  return {.check = check, .state = FindingState::wrong, .message = missing, .advice = advice};
}

Finding busFinding(bool answers, bool hasDisplay) {
  return part("session bus", answers, hasDisplay, "It answers.",
              "No session bus answers, so the tray runs as with --headless.",
              "Start the tray from your desktop session, or set DBUS_SESSION_BUS_ADDRESS.");
}

Finding hostFinding(const SessionFacts& session, bool hasDisplay) {
  if (!session.watcher) {
    return part("tray host", false, hasDisplay, "",
                "No program of this session registers tray icons, so no icon is shown.",
                "Add a tray (status notifier) to your panel. GNOME needs the extension "
                "AppIndicator (gnome-shell-extension-appindicator).");
  }
  return part("tray host", session.host, hasDisplay, "A panel shows tray icons.",
              "Tray icons are registered, but no panel shows them.",
              "Add a tray (status notifier) to your panel.");
}

}  // namespace

SessionFacts findSession() {
  const auto bus = connect();
  if (!bus) return {};
  SessionFacts session{.bus = true};
  session.watcher = hasOwner(*bus, watcherName);
  session.host = session.watcher && hasHost(*bus);
  session.notifications =
      hasOwner(*bus, notificationsName) || canBeStarted(*bus, notificationsName);
  session.portal = hasOwner(*bus, portalName) || canBeStarted(*bus, portalName);
  return session;
}

TrayHost findTrayHost() {
  const auto bus = connect();
  if (!bus) return TrayHost::noBus;
  return hasOwner(*bus, watcherName) && hasHost(*bus) ? TrayHost::present : TrayHost::absent;
}

Findings checkSession(const SessionFacts& session, bool hasDisplay) {
  Findings findings{busFinding(session.bus, hasDisplay)};
  if (!session.bus) return findings;
  findings.push_back(hostFinding(session, hasDisplay));
  findings.push_back(part("notifications", session.notifications, hasDisplay,
                          "A program shows them.", "No program shows notifications.",
                          "Install a notification server, such as dunst or mako."));
  // The dialogs helper has its own folder chooser.
  findings.push_back(part("folder chooser", session.portal, false, "The desktop's portal has one.",
                          "No portal answers; the tray shows a chooser of its own.", ""));
  return findings;
}

}  // namespace zephyl
