#include "ZephylTray/Commands/Client/CommandClient.hpp"

#include <algorithm>
#include <array>
#include <chrono>
#include <ctime>
#include <thread>
#include <utility>
#include <variant>

#include "System/Data/Format.hpp"
#include "System/Data/JSON.hpp"
#include "System/Data/Text.hpp"
#include "ZephylTray/Approvals/ApprovalTexts.hpp"
#include "ZephylTray/Commands/Client/AutostartCommand.hpp"
#include "ZephylTray/Commands/Client/CommandConnection.hpp"
#include "ZephylTray/Commands/Client/CommandOutput.hpp"
#include "ZephylTray/Commands/Client/CommandTerminal.hpp"
#include "ZephylTray/Commands/Client/DefaultsCommand.hpp"
#include "ZephylTray/Commands/Protocol/CommandRecords.hpp"
#include "ZephylTray/Commands/Protocol/TrayLock.hpp"
#include "ZephylTray/Registry/Servers.hpp"

namespace zephyl {

namespace {

using commandTerminal::complain;
using commandTerminal::print;
using std::chrono::steady_clock;

/// The time within which a tray must begin its answer. A hanging tray is reported within two
/// seconds.
constexpr std::chrono::milliseconds answerLimit{1900};
/// The time for a result after acceptance, long enough for a decision that waits for a restarting
/// agent.
constexpr std::chrono::seconds resultLimit{30};
constexpr std::chrono::seconds endLimit{20};

/// The tray's answer: a value, the reason for a refusal, or the absence of an answer.
using Answer = std::variant<json::Value, Error, TrayAbsence>;
/// Handles an event. Returns whether to wait for more.
using EventHandler = std::function<bool(const json::Value&)>;

TrayAbsence notAnswering() {
  return {.kind = TrayAbsence::Kind::notAnswering, .process = lockHolder(Servers::baseDir())};
}

/// Reads the answer line by line. The first line shows that the tray is running.
Answer receive(CommandConnection& connection, CommandConnection::Deadline firstDeadline,
               const EventHandler& onEvent) {
  std::optional<CommandConnection::Deadline> deadline = firstDeadline;
  for (;;) {
    auto next = connection.next(deadline);
    if (const auto* end = std::get_if<CommandConnection::End>(&next)) {
      if (*end == CommandConnection::End::timedOut) return notAnswering();
      return Error{"The tray has ended."};
    }
    auto& reply = std::get<CommandReply>(next);
    switch (reply.kind) {
      case CommandReply::Kind::accepted:
        deadline = steady_clock::now() + resultLimit;
        break;
      case CommandReply::Kind::event:
        if (!onEvent(reply.value)) return json::Value(nullptr);
        deadline.reset();
        break;
      case CommandReply::Kind::result:
        return std::move(reply.value);
      case CommandReply::Kind::error:
        return Error{std::string_view(reply.value.get_string())};
    }
  }
}

Answer ask(const CommandRequest& request, const EventHandler& onEvent = nullptr) {
  const auto deadline = steady_clock::now() + answerLimit;
  auto opened = CommandConnection::open(Servers::baseDir(), deadline);
  if (const auto* absence = std::get_if<TrayAbsence>(&opened)) return *absence;
  auto& connection = std::get<CommandConnection>(opened);
  if (!connection.send(encodeCommandRequest(request), deadline)) return notAnswering();
  return receive(connection, deadline, onEvent);
}

int statusOf(const TrayAbsence& absence) {
  return absence.kind == TrayAbsence::Kind::notRunning ? commandStatus::notRunning
                                                       : commandStatus::notAnswering;
}

/// Prints why there is no value. Returns the exit status.
int explain(const Answer& answer, bool asJSON = false) {
  const auto* const absence = std::get_if<TrayAbsence>(&answer);
  const auto message = absence != nullptr ? absence->message() : std::get<Error>(answer).message;
  if (asJSON) print(json::compact(json::Object{{"error", message}}) + "\n");
  if (!asJSON) complain(message);
  return absence != nullptr ? statusOf(*absence) : commandStatus::failure;
}

/// Requests a record and prints it, as JSON or formatted by `text`. Returns the record, or the exit
/// status after a failure.
template <typename Record, typename Text>
std::variant<Record, int> report(const CommandRequest& request, bool asJSON, Text text) {
  const auto answer = ask(request);
  const auto* const value = std::get_if<json::Value>(&answer);
  if (value == nullptr) return explain(answer, asJSON);
  auto record = json::decode<Record>(*value);
  if (!record)
    return explain(Error{"The tray's answer could not be decoded: ", record.error().message});
  print(asJSON ? json::compact(*value) + "\n" : text(*record));
  return *std::move(record);
}

template <typename Record, typename Text>
int reportOnly(const CommandRequest& request, bool asJSON, Text text) {
  const auto outcome = report<Record>(request, asJSON, text);
  const auto* const status = std::get_if<int>(&outcome);
  return status != nullptr ? *status : commandStatus::success;
}

int reportStatus(bool asJSON) {
  const auto outcome =
      report<CommandStatus>(commandRequests::Status{}, asJSON, &commandOutput::status);
  if (const auto* status = std::get_if<int>(&outcome)) return *status;
  const bool isFine = std::get<CommandStatus>(outcome).attention.empty();
  return isFine ? commandStatus::success : commandStatus::failure;
}

int reportFolders(bool asJSON) {
  std::vector<CommandServerRecord> servers;
  if (!asJSON) {
    const auto answer = ask(commandRequests::Servers{});
    const auto* const value = std::get_if<json::Value>(&answer);
    if (value == nullptr) return explain(answer);
    if (auto known = json::decode<std::vector<CommandServerRecord>>(*value)) {
      servers = *std::move(known);
    }
  }
  return reportOnly<std::vector<CommandFolder>>(
      commandRequests::Folders{}, asJSON,
      [&](const auto& folders) { return commandOutput::folders(folders, servers); });
}

/// Executes a request without a result. Prints `done` on success.
int execute(const CommandRequest& request, const char* done) {
  const auto answer = ask(request);
  if (!std::holds_alternative<json::Value>(answer)) return explain(answer);
  print(formatText("{}\n", done));
  return commandStatus::success;
}

std::string timeOfDay() {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  ::localtime_r(&now, &local);
  return formatText("{:02}:{:02}:{:02}", local.tm_hour, local.tm_min, local.tm_sec);
}

int watch(bool asJSON) {
  const auto answer = ask(commandRequests::Watch{}, [asJSON](const json::Value& value) {
    if (asJSON) return print(json::compact(value) + "\n");
    const auto status = json::decode<CommandStatus>(value);
    return !status || print(timeOfDay() + " " + commandOutput::change(*status));
  });
  if (std::holds_alternative<json::Value>(answer)) return commandStatus::success;
  return explain(answer);
}

int showLogs(const CommandArguments& arguments) {
  commandRequests::Logs request{.follow = arguments.follow};
  if (!arguments.operands.empty()) request.server = arguments.operands[0];
  const auto show = [](const json::Value& value) {
    const auto lines = json::decode<std::vector<std::string>>(value);
    return !lines || print(commandOutput::log(*lines));
  };
  const auto answer = ask(request, show);
  const auto* const value = std::get_if<json::Value>(&answer);
  if (value == nullptr) return explain(answer);
  if (!arguments.follow) show(*value);
  return commandStatus::success;
}

/// Shows the permanent exception and asks for the phrase.
std::variant<std::string, int> askForPhrase(const std::string& id) {
  if (!commandTerminal::canAsk()) {
    complain("A permanent exception requires a terminal in which you type a phrase.");
    return commandStatus::failure;
  }
  const auto answer = ask(commandRequests::Requests{});
  const auto* const value = std::get_if<json::Value>(&answer);
  if (value == nullptr) return explain(answer);
  const auto pending = json::decode<CommandPending>(*value);
  if (!pending) return explain(pending.error());
  const auto found = std::ranges::find(pending->requests, id, &PendingApproval::id);
  if (found == pending->requests.end()) return explain(Error{"No request has this id."});
  return commandTerminal::ask(
      formatText("{}\n\n{}\n> ", approvalPromptText(*found), alwaysAllowText(*found)));
}

int decide(const CommandArguments& arguments) {
  using commandRequests::Decision;
  commandRequests::Answer request{.id = arguments.operands[0]};
  const auto& decision = arguments.operands[1];
  request.decision = decision == "always" ? Decision::always
                     : decision == "once" ? Decision::once
                                          : Decision::deny;
  if (request.decision == Decision::always) {
    const auto phrase = askForPhrase(request.id);
    if (const auto* status = std::get_if<int>(&phrase)) return *status;
    request.confirm = std::get<std::string>(phrase);
  }
  constexpr std::array done{"Denied.", "Allowed once.", "Allowed permanently."};
  return execute(request, done[static_cast<std::size_t>(request.decision)]);
}

int join() {
  auto key = commandTerminal::readKey();
  if (!key) {
    complain(key.error().message);
    return commandStatus::failure;
  }
  return execute(commandRequests::Join{*std::move(key)},
                 "The server was added. `zephyl-tray servers` shows when it is connected.");
}

/// Waits until the tray has released its lock, so that another one can be started.
int quit() {
  const auto answer = ask(commandRequests::Quit{});
  if (!std::holds_alternative<json::Value>(answer)) return explain(answer);
  const auto deadline = steady_clock::now() + endLimit;
  while (lockHolder(Servers::baseDir())) {
    if (steady_clock::now() >= deadline) return explain(notAnswering());
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  print("The tray has ended.\n");
  return commandStatus::success;
}

int showDiagnostics() {
  const auto answer = ask(commandRequests::Diagnostics{});
  const auto* const value = std::get_if<json::Value>(&answer);
  if (value == nullptr) return explain(answer);
  print(json::prettySorted(*value));
  return commandStatus::success;
}

std::optional<std::string> onlyOperand(const CommandArguments& arguments) {
  if (arguments.operands.empty()) return std::nullopt;
  return arguments.operands.front();
}

}  // namespace

int runCommand(const CommandArguments& arguments) {
  const bool asJSON = arguments.json;
  switch (arguments.verb) {
    case CommandVerb::status:
      return reportStatus(asJSON);
    case CommandVerb::servers:
      return reportOnly<std::vector<CommandServerRecord>>(commandRequests::Servers{}, asJSON,
                                                          &commandOutput::servers);
    case CommandVerb::folders:
      return reportFolders(asJSON);
    case CommandVerb::requests:
      return reportOnly<CommandPending>(commandRequests::Requests{}, asJSON,
                                        &commandOutput::requests);
    case CommandVerb::answer:
      return decide(arguments);
    case CommandVerb::logs:
      return showLogs(arguments);
    case CommandVerb::diagnostics:
      return showDiagnostics();
    case CommandVerb::watch:
      return watch(asJSON);
    case CommandVerb::join:
      return join();
    case CommandVerb::open:
      return execute(commandRequests::Open{onlyOperand(arguments)}, "The window is opening.");
    case CommandVerb::restartAgent:
      return execute(commandRequests::RestartAgent{}, "The agent is restarting.");
    case CommandVerb::restartTailnet:
      return execute(commandRequests::RestartTailnet{onlyOperand(arguments)},
                     "The private network is restarting.");
    case CommandVerb::quit:
      return quit();
    case CommandVerb::defaults:
      return runDefaults(arguments);
    case CommandVerb::autostart:
      return runAutostart(arguments.operands.front());
    case CommandVerb::doctor:
      break;
  }
  return commandStatus::wrongUse;
}

}  // namespace zephyl
