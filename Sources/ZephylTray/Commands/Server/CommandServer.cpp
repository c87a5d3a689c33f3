#include "ZephylTray/Commands/Server/CommandServer.hpp"

#include <algorithm>
#include <cctype>
#include <utility>
#include <variant>

#include "System/Concurrency/MainLoop.hpp"
#include "System/Concurrency/Weakly.hpp"
#include "System/Data/Text.hpp"
#include "System/Files/Log.hpp"
#include "ZephylTray/Approvals/ApprovalTexts.hpp"

namespace zephyl {

namespace {

using Client = CommandListener::Client;
using Kind = CommandReply::Kind;

void finish(const Client& client, json::Value result = nullptr) {
  client.finish(encodeCommandReply({.kind = Kind::result, .value = std::move(result)}));
}

void fail(const Client& client, const std::string& message) {
  client.finish(encodeCommandReply({.kind = Kind::error, .value = json::Value(message)}));
}

/// Announces that the result follows later.
void accept(const Client& client) {
  client.send(encodeCommandReply({.kind = Kind::accepted}));
}

/// Returns whether `screen` has only characters of screen names, because it is passed to the
/// desktop app.
bool isScreenName(std::string_view screen) {
  constexpr std::size_t longest = 200;
  const auto isAllowed = [](unsigned char character) {
    return std::isalnum(character) != 0 || character == '-' || character == '/';
  };
  return !screen.empty() && screen.size() <= longest && std::ranges::all_of(screen, isAllowed);
}

}  // namespace

CommandServer::CommandServer(const Runtime& runtime, Port port)
    : runtime_(runtime),
      port_(std::move(port)),
      reports_(port_.reports),
      subscribers_(std::make_shared<CommandSubscribers>(
          runtime.mainLoop, runtime.clock,
          CommandSubscribers::Port{.state = [this] { return json::encode(reports_.status(host_)); },
                                   .log = port_.log})),
      host_(port_.findTrayHost ? TrayHost::unknown : TrayHost::notWanted) {}

void CommandServer::start(const std::string& baseDirectory) {
  auto socket = CommandSocket::listen(baseDirectory);
  if (!socket) return log("commands are not available: {}", socket.error().message);
  CommandListener::Handlers handlers;
  handlers.onRequest = weakly(this, [](CommandServer& self, const Client& client,
                                       std::string_view line) { self.receive(client, line); });
  handlers.onClosed = runtime_.mainLoop.later(
      weakly(subscribers_,
             [](CommandSubscribers& subscribers, std::uint64_t id) { subscribers.remove(id); }));
  listener_ = std::make_unique<CommandListener>(runtime_.reactor, *std::move(socket),
                                                CommandListener::Options{}, std::move(handlers));
}

void CommandServer::receive(const Client& client, std::string_view line) {
  auto parsed = parseCommandRequest(line);
  if (!parsed) return fail(client, parsed.error().message);
  if (waiting_ >= maxWaiting) return fail(client, "The tray is too busy for more commands.");
  ++waiting_;
  // Shared, because a key in it must not be copied with the task.
  const auto request = std::make_shared<const CommandRequest>(std::move(*parsed));
  runtime_.mainLoop.async(weakly(this, [client, request](CommandServer& self) {
    --self.waiting_;
    std::visit([&](const auto& each) { self.perform(client, each); }, *request);
  }));
}

void CommandServer::perform(const Client& client, const commandRequests::Status&) {
  if (!port_.findTrayHost) return finish(client, json::encode(reports_.status(host_)));
  waitingForHost_.push_back(client);
  hostTimer_ = runtime_.mainLoop.after(
      runtime_.clock, hostLimit,
      weakly(this, [](CommandServer& self) { self.sendStatusToWaiting(); }));
  if (std::exchange(findingHost_, true)) return;
  port_.findTrayHost(weakly(this, [](CommandServer& self, TrayHost host) {
    self.findingHost_ = false;
    self.host_ = host;
    self.sendStatusToWaiting();
  }));
}

void CommandServer::sendStatusToWaiting() {
  hostTimer_.cancel();
  const auto status = json::encode(reports_.status(host_));
  for (const auto& client : std::exchange(waitingForHost_, {})) finish(client, status);
}

void CommandServer::perform(const Client& client, const commandRequests::Servers&) const {
  finish(client, json::encode(reports_.servers()));
}

void CommandServer::perform(const Client& client, const commandRequests::Folders&) const {
  finish(client, json::encode(reports_.folders()));
}

void CommandServer::perform(const Client& client, const commandRequests::Requests&) const {
  finish(client, json::encode(reports_.requests()));
}

void CommandServer::perform(const Client& client, const commandRequests::Diagnostics&) const {
  finish(client, port_.diagnostics());
}

void CommandServer::perform(const Client& client, const commandRequests::Logs& request) const {
  std::optional<std::string> serverId;
  if (request.server) {
    const auto server = reports_.findServer(*request.server);
    if (!server) return fail(client, server.error().message);
    serverId = server->id;
  }
  if (request.follow) return subscribers_->follow(client, serverId);
  finish(client, json::encode(port_.log(serverId, 0).lines));
}

void CommandServer::perform(const Client& client, const commandRequests::Answer& request) const {
  using commandRequests::Decision;
  if (request.decision == Decision::always &&
      trimmed(request.confirm.value_or("")) != alwaysAllowPhrase) {
    return fail(client,
                "Confirmation phrase didn't match. No permanent exception was created, and the "
                "request still waits.");
  }
  const char* const decision = request.decision == Decision::always ? "always"
                               : request.decision == Decision::once ? "approve"
                                                                    : "deny";
  accept(client);
  port_.decide(request.id, decision, [client](const Failure& failure) {
    if (failure) return fail(client, *failure);
    finish(client);
  });
}

void CommandServer::perform(const Client& client, const commandRequests::Join& request) const {
  if (const auto failure = port_.join(request.value)) return fail(client, *failure);
  finish(client);
}

void CommandServer::perform(const Client& client, const commandRequests::Open& request) const {
  if (request.screen && !isScreenName(*request.screen)) {
    return fail(client, "That is not the name of a screen. Examples are “servers” and “join”.");
  }
  if (const auto failure = port_.open(request.screen)) return fail(client, *failure);
  finish(client);
}

void CommandServer::perform(const Client& client, const commandRequests::RestartAgent&) const {
  port_.restartAgent();
  finish(client);
}

void CommandServer::perform(const Client& client,
                            const commandRequests::RestartTailnet& request) const {
  std::optional<std::string> serverId;
  if (request.server) {
    const auto server = reports_.findServer(*request.server);
    if (!server) return fail(client, server.error().message);
    serverId = server->id;
  }
  if (port_.restartTailnet(serverId) == 0) {
    return fail(client, serverId ? "This server's private network is not in use."
                                 : "No server's private network is in use.");
  }
  finish(client);
}

void CommandServer::perform(const Client& client, const commandRequests::Quit&) const {
  finish(client);
  port_.quit();
}

void CommandServer::perform(const Client& client, const commandRequests::Watch&) const {
  subscribers_->watch(client);
}

}  // namespace zephyl
