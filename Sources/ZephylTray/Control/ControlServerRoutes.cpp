#include <map>
#include <utility>

#include "System/Concurrency/MainLoop.hpp"
#include "System/Data/Secret.hpp"
#include "ZephylTray/Control/ControlServer.hpp"
#include "ZephylTray/Control/HTTPRequest.hpp"
#include "ZephylTray/Control/Route.hpp"

namespace zephyl {

namespace {

/// Returns the body if it is a JSON object, otherwise an empty object.
json::Object fieldsOf(std::string_view body) {
  auto value = json::parse(body);
  if (!value || !value->is_object()) return {};
  return std::move(value->get_object());
}

std::optional<std::string> text(const json::Object& fields, std::string_view key) {
  const auto* value = fields.if_contains(key);
  if (value == nullptr || !value->is_string()) return std::nullopt;
  return std::string(value->get_string());
}

std::optional<bool> flag(const json::Object& fields, std::string_view key) {
  const auto* value = fields.if_contains(key);
  if (value == nullptr || !value->is_bool()) return std::nullopt;
  return value->get_bool();
}

/// Returns a secret text of the fields and overwrites it there.
std::optional<std::string> extractSecret(json::Object& fields, std::string_view key) {
  auto secret = text(fields, key);
  if (secret) {
    auto& original = fields.at(key).get_string();
    std::fill(original.begin(), original.end(), '\0');
  }
  return secret;
}

constexpr auto noEndpoint = "no such endpoint";

}  // namespace

void ControlServer::dispatch(const Peer& peer, const HTTPRequest& request) {
  static const std::map<std::string_view, RouteHandler> routes = {
      {"GET /status", &ControlServer::getStatus},
      {"POST /invite", &ControlServer::postInvite},
      {"GET /servers", &ControlServer::getServers},
      {"GET /diagnostics", &ControlServer::getDiagnostics},
      {"POST /agent/restart", &ControlServer::postAgentRestart},
      {"POST /servers/:id/label", &ControlServer::postLabel},
      {"POST /servers/:id/accent", &ControlServer::postAccent},
      {"POST /servers/:id/enabled", &ControlServer::postEnabled},
      {"DELETE /servers/:id", &ControlServer::deleteServer},
      {"GET /roots", &ControlServer::getRoots},
      {"POST /servers/:id/roots", &ControlServer::postRoot},
      {"POST /servers/:id/roots/scope", &ControlServer::postRootScope},
  };
  const auto [path, id] = route(request.method, request.path);
  const auto found = routes.find(path);
  if (found == routes.end()) return answers::fail(peer, HTTPStatus::notFound, noEndpoint);
  (this->*found->second)({peer, id, request.body});
}

void ControlServer::getStatus(const Call& call) {
  auto status = mainLoop_.sync(
      [this] { return handlers.statusProvider ? handlers.statusProvider() : json::Object(); },
      stopping_.get_token());
  if (!status) return answers::reply(call.peer, shuttingDown);
  if (auto route = consumePendingRoute()) (*status)["request"] = *route;
  answers::respond(call.peer, HTTPStatus::ok, *status);
}

void ControlServer::postInvite(const Call& call) {
  auto fields = fieldsOf(call.body);
  auto key = extractSecret(fields, "key");
  if (!key) return answers::reply(call.peer, "expected a JSON body with a \"key\" field");
  completeFromMain(call, [&](const Completion& done) {
    handlers.onInvite ? handlers.onInvite(*key, done) : done(std::nullopt);
  });
  wipe(*key);
}

void ControlServer::getServers(const Call& call) {
  respondFromMain(call, [this] {
    json::Array servers;
    if (handlers.serversProvider) {
      for (auto& server : handlers.serversProvider()) servers.emplace_back(std::move(server));
    }
    return json::Object{{"servers", std::move(servers)}};
  });
}

void ControlServer::getDiagnostics(const Call& call) {
  if (!handlers.diagnosticsProvider)
    return answers::fail(call.peer, HTTPStatus::notFound, noEndpoint);
  respondFromMain(call, handlers.diagnosticsProvider);
}

void ControlServer::postAgentRestart(const Call& call) {
  if (!handlers.onRestartAgent) return answers::fail(call.peer, HTTPStatus::notFound, noEndpoint);
  replyFromMain(call, [this] {
    handlers.onRestartAgent();
    return Failure();
  });
}

void ControlServer::postLabel(const Call& call) {
  const auto label = text(fieldsOf(call.body), "label");
  if (!label) return answers::reply(call.peer, "expected a \"label\" field");
  replyFromMain(call, [&] {
    return handlers.onSetLabel ? handlers.onSetLabel(call.id, *label) : std::nullopt;
  });
}

void ControlServer::postAccent(const Call& call) {
  const auto accent = text(fieldsOf(call.body), "accent");
  if (!accent) return answers::reply(call.peer, "expected an \"accent\" field");
  replyFromMain(call, [&] {
    return handlers.onSetAccent ? handlers.onSetAccent(call.id, *accent) : std::nullopt;
  });
}

void ControlServer::postEnabled(const Call& call) {
  const auto enabled = flag(fieldsOf(call.body), "enabled");
  if (!enabled) return answers::reply(call.peer, "expected a boolean \"enabled\" field");
  completeFromMain(call, [&](const Completion& done) {
    handlers.onSetEnabled ? handlers.onSetEnabled(call.id, *enabled, done) : done(std::nullopt);
  });
}

void ControlServer::deleteServer(const Call& call) {
  completeFromMain(call, [&](const Completion& done) {
    handlers.onRemove ? handlers.onRemove(call.id, done) : done(std::nullopt);
  });
}

void ControlServer::getRoots(const Call& call) {
  if (!handlers.rootsProvider) return answers::fail(call.peer, HTTPStatus::notFound, noEndpoint);
  handlers.rootsProvider(
      [pending = std::make_shared<answers::Pending>(call.peer, HTTPStatus::badGateway)](
          Result<std::vector<json::Object>> roots) {
        const Peer& peer = pending->peer();
        if (!roots) return answers::fail(peer, HTTPStatus::badGateway, roots.error().message);
        json::Array list;
        for (auto& root : *roots) list.emplace_back(std::move(root));
        answers::respond(peer, HTTPStatus::ok, {{"roots", std::move(list)}});
      });
}

void ControlServer::postRoot(const Call& call) {
  if (!handlers.onAddRoot) return answers::fail(call.peer, HTTPStatus::notFound, noEndpoint);
  handlers.onAddRoot(call.id, answers::replyLater(call.peer));
}

void ControlServer::postRootScope(const Call& call) {
  if (!handlers.onSetRootShared) return answers::fail(call.peer, HTTPStatus::notFound, noEndpoint);
  const auto fields = fieldsOf(call.body);
  const auto root = text(fields, "root");
  const auto shared = flag(fields, "shared");
  if (!root || !shared) {
    return answers::reply(call.peer, "expected a \"root\" string and a boolean \"shared\"");
  }
  handlers.onSetRootShared(call.id, *root, *shared, answers::replyLater(call.peer));
}

void ControlServer::replyFromMain(const Call& call, const std::function<Failure()>& handler) {
  const auto result = mainLoop_.sync(handler, stopping_.get_token());
  answers::reply(call.peer, result ? *result : shuttingDown);
}

void ControlServer::completeFromMain(const Call& call,
                                     const std::function<void(Completion)>& handler) {
  mainLoop_.sync([&, done = answers::replyLater(call.peer)] { handler(done); },
                 stopping_.get_token());
}

void ControlServer::respondFromMain(const Call& call,
                                    const std::function<json::Object()>& provider) {
  const auto object = mainLoop_.sync(provider, stopping_.get_token());
  if (!object) return answers::reply(call.peer, shuttingDown);
  answers::respond(call.peer, HTTPStatus::ok, *object);
}

std::optional<std::string> ControlServer::consumePendingRoute() {
  const std::scoped_lock lock(routeLock_);
  return std::exchange(pendingRoute_, std::nullopt);
}

}  // namespace zephyl
