#include "ZephylTray/Commands/Doctor/SessionChecks.hpp"

namespace zephyl {

namespace {

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

Finding hostFinding(const SessionServices& session, bool hasDisplay) {
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

Findings checkSession(const SessionServices& session, bool hasDisplay) {
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
