#include "ZephylTray/Commands/Client/AutostartCommand.hpp"

#include <optional>
#include <utility>

#include "System/Data/Format.hpp"
#include "System/Files/Bundle.hpp"
#include "System/Files/Directories.hpp"
#include "System/Files/Environment.hpp"
#include "System/Files/Files.hpp"
#include "ZephylTray/Commands/Client/AutostartEntry.hpp"
#include "ZephylTray/Commands/Client/CommandClient.hpp"
#include "ZephylTray/Commands/Client/CommandTerminal.hpp"
#include "ZephylTray/Commands/Client/ProgramRun.hpp"

namespace zephyl {

namespace {

using commandTerminal::fail;
using commandTerminal::print;

constexpr auto unit = "zephyl-tray.service";
constexpr auto entryName = "com.zephyl.tray.desktop";
constexpr std::chrono::seconds systemctlLimit{5};

ProgramRun systemctl(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), {"systemctl", "--user"});
  return runProgram(arguments, systemctlLimit);
}

bool hasDisplay() {
  return environmentVariable("WAYLAND_DISPLAY") || environmentVariable("DISPLAY");
}

/// The state of the unit in the user's service manager.
enum class Unit { absent, enabled, disabled };

Unit findUnit() {
  const auto answer = systemctl({"is-enabled", unit}).output;
  if (answer == "enabled" || answer == "enabled-runtime" || answer == "linked") {
    return Unit::enabled;
  }
  return answer == "disabled" ? Unit::disabled : Unit::absent;
}

bool systemdRunsSession() {
  return !hasDisplay() || systemctl({"is-active", "graphical-session.target"}).output == "active";
}

std::string entryPath() {
  return joinPath(joinPath(directories::configuration(), "autostart"), entryName);
}

/// Returns whether the user's own entry starts the tray. The entry of the system is shipped hidden.
bool entryIsOn() {
  const auto entry = readFile(entryPath());
  return entry && startsProgram(*entry);
}

/// Returns the desktop entry of the installation, or empty if there is none.
std::string installedEntry() {
  const auto resources = Bundle::main().resourceDirectory();
  if (!resources) return {};
  const auto entry =
      readFile(joinPath(joinPath(parentDirectory(*resources), "applications"), entryName));
  return entry ? *entry : "";
}

int report(const std::string& sentence) {
  print(sentence + "\n");
  return commandStatus::success;
}

Result<void> writeEntry() {
  const auto& executable = Bundle::main().executable();
  if (!executable) return Error{"The path of this program is unknown."};
  if (auto made = createDirectories(parentDirectory(entryPath())); !made) return made;
  return writeFileAtomically(entryPath(), autostartEntry(installedEntry(), *executable),
                             Durability::flushed);
}

int turnOn() {
  const auto state = findUnit();
  if (state != Unit::absent && systemdRunsSession()) {
    if (systemctl({"enable", unit}).status != 0) {
      return fail(formatText("`systemctl --user enable {}` failed; run it to see why.", unit));
    }
    if (const auto removed = removePath(entryPath()); !removed)
      return fail(removed.error().message);
    return report(formatText("Zephyl starts with your session, as the systemd unit {}.", unit));
  }
  if (state == Unit::enabled && systemctl({"disable", unit}).status != 0) {
    return fail(formatText("`systemctl --user disable {}` failed; run it to see why.", unit));
  }
  if (const auto written = writeEntry(); !written) return fail(written.error().message);
  return report(formatText("Zephyl starts with your session, through {}.", entryPath()));
}

int turnOff() {
  if (findUnit() == Unit::enabled && systemctl({"disable", unit}).status != 0) {
    return fail(formatText("`systemctl --user disable {}` failed; run it to see why.", unit));
  }
  if (const auto removed = removePath(entryPath()); !removed) return fail(removed.error().message);
  return report("Zephyl does not start with your session.");
}

int showStatus() {
  if (findUnit() == Unit::enabled) return report(formatText("on (systemd unit {})", unit));
  if (entryIsOn()) return report(formatText("on ({})", entryPath()));
  report("off");
  return commandStatus::failure;
}

}  // namespace

int runAutostart(const std::string& operation) {
  if (operation == "on") return turnOn();
  if (operation == "off") return turnOff();
  return showStatus();
}

}  // namespace zephyl
