#include "ZephylTray/Commands/Doctor/TrayChecks.hpp"

#include <limits>
#include <utility>

#include <unistd.h>

#include "System/Data/Format.hpp"
#include "System/Data/JSON.hpp"
#include "System/Network/SocketOwner.hpp"
#include "ZephylTray/Commands/Client/CommandConnection.hpp"
#include "ZephylTray/Commands/Protocol/TrayLock.hpp"
#include "ZephylTray/Config/Config.hpp"
#include "ZephylTray/Registry/Servers.hpp"

namespace zephyl {

namespace {

bool isPort(std::int64_t number) {
  return number > 0 && number <= std::numeric_limits<std::uint16_t>::max();
}

std::optional<uid_t> ownerOf(std::int64_t port) {
  if (!isPort(port)) return std::nullopt;
  const auto owner = listeningUser("127.0.0.1", static_cast<std::uint16_t>(port));
  return owner ? std::optional(*owner) : std::nullopt;
}

}  // namespace

RunningTray findRunningTray() {
  RunningTray tray{.process = lockHolder(Servers::baseDir())};
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(2);
  auto opened = CommandConnection::open(Servers::baseDir(), deadline);
  auto* const connection = std::get_if<CommandConnection>(&opened);
  if (connection == nullptr) return tray;
  if (!connection->send(encodeCommandRequest(commandRequests::Status{}), deadline)) return tray;
  const auto reply = connection->next(deadline);
  if (const auto* answer = std::get_if<CommandReply>(&reply)) {
    auto status = json::decode<CommandStatus>(answer->value);
    if (status) tray.status = *std::move(status);
  }
  if (!tray.process && tray.status) tray.process = static_cast<pid_t>(tray.status->pid);
  return tray;
}

Findings checkTray(const RunningTray& tray) {
  constexpr auto check = "tray";
  if (!tray.process) {
    return {{.check = check,
             .state = FindingState::note,
             .message = "It is not running.",
             .advice = "Start it with `zephyl-tray`."}};
  }
  if (!tray.status) {
    return {{.check = check,
             .state = FindingState::wrong,
             .message = formatText("It runs as process {}, but does not answer.", *tray.process),
             .advice = formatText("If that lasts, end it with `kill {}` and start it again.",
                                  *tray.process)}};
  }
  Findings findings{
      {.check = check,
       .state = FindingState::ok,
       .message = formatText("It runs as process {}: {}.", *tray.process, tray.status->summary)}};
  for (const auto& notice : tray.status->attention) {
    const bool isQuestion = notice.code == "requestsWaiting";
    findings.push_back({.check = check,
                        .state = isQuestion ? FindingState::note : FindingState::wrong,
                        .message = notice.message,
                        .advice = notice.advice});
  }
  return findings;
}

Finding checkPort(const PortFacts& facts, bool trayRuns, uid_t user) {
  Finding finding{.check = facts.check, .state = FindingState::wrong};
  const auto otherPort = formatText(
      "set another one with `zephyl-tray defaults write {} PORT` "
      "and restart the tray.",
      facts.setting);
  if (!isPort(facts.port)) {
    finding.message = formatText("{} is not a port number.", facts.port);
    finding.advice = formatText("Change it: {}", otherPort);
  } else if (!facts.owner) {
    const bool isMissing = trayRuns && facts.isOfTheTray;
    finding.state = isMissing ? FindingState::wrong : FindingState::ok;
    finding.message = formatText("No program listens on port {}.", facts.port);
    if (isMissing) finding.advice = "Restart the tray.";
  } else if (*facts.owner != user && *facts.owner != 0) {
    finding.message = formatText("Port {} is used by a program of another user (user id {}).",
                                 facts.port, *facts.owner);
    finding.advice = formatText("End that program, or {}", otherPort);
  } else if (facts.isOfTheTray && !trayRuns) {
    finding.message = formatText("Port {} is used by another program.", facts.port);
    finding.advice =
        formatText("`ss -ltnp sport = :{}` names it; end it, or {}", facts.port, otherPort);
  } else {
    finding.state = FindingState::ok;
    finding.message = formatText("A program of {} listens on port {}.",
                                 *facts.owner == user ? "this user" : "root", facts.port);
  }
  return finding;
}

Findings checkPorts(bool trayRuns) {
  const auto agent = Config::trayPort();
  const auto control = Config::onboardingPort();
  Findings findings{
      checkPort(
          {.check = "agent port", .setting = "trayPort", .port = agent, .owner = ownerOf(agent)},
          trayRuns, ::geteuid()),
      checkPort({.check = "control port",
                 .setting = "onboardingPort",
                 .port = control,
                 .owner = ownerOf(control),
                 .isOfTheTray = true},
                trayRuns, ::geteuid())};
  if (agent == control) {
    findings.push_back({.check = "ports",
                        .state = FindingState::wrong,
                        .message = "The agent and the control API have the same port.",
                        .advice = "Change one with `zephyl-tray defaults write trayPort PORT`."});
  }
  return findings;
}

}  // namespace zephyl
