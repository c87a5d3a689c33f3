#include "ZephylTray/Commands/Doctor/Doctor.hpp"

#include <algorithm>
#include <array>
#include <iterator>
#include <utility>

#include "System/Data/Format.hpp"
#include "System/Data/JSON.hpp"
#include "System/Data/Text.hpp"
#include "System/Files/Environment.hpp"
#include "ZephylTray/Commands/Client/CommandClient.hpp"
#include "ZephylTray/Commands/Client/CommandTerminal.hpp"
#include "ZephylTray/Commands/Doctor/FileChecks.hpp"
#include "ZephylTray/Commands/Doctor/ProgramChecks.hpp"
#include "ZephylTray/Commands/Doctor/SessionChecks.hpp"
#include "ZephylTray/Commands/Doctor/SystemChecks.hpp"
#include "ZephylTray/Commands/Doctor/TrayChecks.hpp"

namespace zephyl {

namespace {

bool hasDisplay() {
  return environmentVariable("WAYLAND_DISPLAY") || environmentVariable("DISPLAY");
}

std::string line(const Finding& finding) {
  constexpr std::array names{"ok", "note", "wrong"};
  auto text = formatText("{:<6}{}: {}", names[static_cast<std::size_t>(finding.state)],
                         finding.check, visible(finding.message));
  if (!finding.advice.empty()) text += " " + visible(finding.advice);
  return text + "\n";
}

}  // namespace

Findings examineEnvironment() {
  Findings all;
  const auto add = [&all](Findings found) { std::ranges::move(found, std::back_inserter(all)); };
  const bool display = hasDisplay();
  const auto tray = findRunningTray();
  add(checkTray(tray));
  add(checkSession(SessionServices::find(), display));
  add(checkPrograms(display));
  add(checkPorts(tray.process.has_value()));
  add(checkFiles());
  add(checkSystem());
  return all;
}

std::string findingsText(const Findings& findings) {
  std::string text;
  for (const auto& finding : findings) text += line(finding);
  return text;
}

int runDoctor(bool asJSON) {
  const auto findings = examineEnvironment();
  commandTerminal::print(asJSON ? json::compact(json::encode(findings)) + "\n"
                                : findingsText(findings));
  const bool isWrong = std::ranges::count(findings, FindingState::wrong, &Finding::state) > 0;
  return isWrong ? commandStatus::failure : commandStatus::success;
}

}  // namespace zephyl
