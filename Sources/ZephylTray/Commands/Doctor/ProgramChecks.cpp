#include "ZephylTray/Commands/Doctor/ProgramChecks.hpp"

#include <algorithm>
#include <string>

#include "Helpers/Dialogs/Client/ProcessDialogs.hpp"
#include "Helpers/Updates/Client/ProcessUpdater.hpp"
#include "Helpers/Updates/Client/Updater.hpp"
#include "System/Data/Format.hpp"
#include "System/Data/JSON.hpp"
#include "System/Data/Text.hpp"
#include "System/Files/Bundle.hpp"
#include "System/Files/Environment.hpp"
#include "System/Files/Files.hpp"
#include "ZephylTray/Actions/DesktopApp.hpp"
#include "ZephylTray/Config/Config.hpp"
#include "ZephylTray/Registry/Servers.hpp"

namespace zephyl {

namespace {

using enum FindingState;

Finding checkBundle() {
  constexpr auto check = "installation";
  const auto resources = Bundle::main().resourceDirectory();
  if (!resources) {
    return {check, note, "The program runs from a build tree: no notifications, no updates.", ""};
  }
  const auto file = joinPath(*resources, "Info.json");
  if (!Bundle::main().identifier()) {
    return {check, wrong,
            formatText("{} is missing or could not be decoded: no notifications.", file),
            "Install zephyl-tray again."};
  }
  return {check, ok, formatText("{} is fine.", file), ""};
}

/// Returns how to install a missing program of the resource directory.
std::string installAdvice(const char* preposition, const std::string& name) {
  const auto resources = Bundle::main().resourceDirectory();
  if (!resources) return "Build it in the source tree, or set ZEPHYL_REPO_ROOT to one.";
  return formatText("Install it {} {}, or set ZEPHYL_REPO_ROOT to a source tree with a build.",
                    preposition, joinPath(*resources, name));
}

Finding checkAgent() {
  constexpr auto check = "agent";
  if (const auto directory = Config::bundledRuntimeDir()) {
    return {check, ok, formatText("{} is used.", joinPath(*directory, "zephyl-agent")), ""};
  }
  if (const auto build = Config::agentDevBinary()) {
    return {check, ok, formatText("{} is used.", *build), ""};
  }
  return {check, wrong, "No agent is installed, so no folder is shared.",
          installAdvice("as", "agent/zephyl-agent")};
}

bool anyServerJoined() {
  const auto text = readFile(joinPath(Servers::baseDir(), "servers.json"));
  const auto entries = text ? json::decodeText<ServerList::Entries>(*text)
                            : Result<ServerList::Entries>(text.error());
  return entries && std::ranges::any_of(*entries, &ServerEntry::isJoined);
}

Finding checkTailnet() {
  constexpr auto check = "private networks";
  std::string missing;
  for (const auto* name : {"tailscaled", "zephyl-tailnet"}) {
    if (Config::tailnetBinary(name)) continue;
    missing += missing.empty() ? name : std::string(" and ") + name;
  }
  if (missing.empty()) return {check, ok, "Both programs are installed.", ""};
  return {check, anyServerJoined() ? wrong : note,
          formatText("Without {} no server can be joined or reached.", missing),
          installAdvice("in", "agent")};
}

Finding checkDialogs(bool hasDisplay) {
  constexpr auto check = "dialogs";
  const auto program = dialogsProgram(Bundle::main());
  if (isExecutableFile(program)) return {check, ok, formatText("{} is used.", program), ""};
  if (!hasDisplay) return {check, note, "The program for windows is not installed.", ""};
  return {check, wrong,
          formatText("{} is not installed: requests wait in the menu without a window.", program),
          "Install the package zephyl-tray-desktop."};
}

Finding checkWindow() {
  constexpr auto check = "window";
  if (DesktopApp::isInstalled()) return {check, ok, "Zephyl's window is installed.", ""};
  return {check, note, "Zephyl's window is not installed; the menu and these commands do its work.",
          ""};
}

Finding checkUpdater() {
  constexpr auto check = "updates";
  if (!Updater::isAvailable()) {
    return {check, ok, "This installation does not update itself; your system does.", ""};
  }
  const auto program = updaterProgram(Bundle::main());
  if (isExecutableFile(program)) {
    return {check, ok, formatText("Updates come from {}.", Updater::feedAddress()), ""};
  }
  return {check, wrong, formatText("{} is missing, so there are no updates.", program),
          "Install Zephyl again."};
}

bool isOnPath(const std::string& name) {
  const auto path = environmentVariable("PATH").value_or("/usr/bin:/bin");
  const auto directories = splitNonEmpty(path, ':');
  return std::ranges::any_of(directories, [&](std::string_view directory) {
    return isExecutableFile(joinPath(directory, name));
  });
}

Finding checkTool(const char* name, const char* consequence) {
  if (isOnPath(name)) return {name, ok, "It is installed.", ""};
  return {name, note, formatText("It is not installed: {}", consequence),
          formatText("Install it with `sudo apt install {}`.",
                     std::string_view(name) == "xdg-open" ? "xdg-utils" : name)};
}

}  // namespace

Findings checkPrograms(bool hasDisplay) {
  Findings findings{checkBundle(),
                    checkAgent(),
                    checkTailnet(),
                    checkDialogs(hasDisplay),
                    checkWindow(),
                    checkUpdater(),
                    checkTool("lsof", "an agent that was left behind keeps its port.")};
  if (hasDisplay) findings.push_back(checkTool("xdg-open", "web pages cannot be opened."));
  return findings;
}

}  // namespace zephyl
