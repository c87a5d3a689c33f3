#include "ZephylTray/Control/ControlServer.hpp"

#include <limits>
#include <utility>

#include "System/Data/Secret.hpp"
#include "System/Files/Log.hpp"
#include "ZephylTray/Control/HTTPRequest.hpp"

namespace zephyl {

namespace {
constexpr std::size_t tokenBytes = 16;
constexpr auto tokenHeader = "x-zephyl-onboard-token";

}  // namespace

ControlServer::ControlServer(MainLoop& mainLoop)
    : mainLoop_(mainLoop), token_(randomHexadecimal(tokenBytes)) {}

ControlServer::~ControlServer() {
  stopping_.request_stop();
  listener_.reset();
}

bool ControlServer::isListening() const {
  return listener_ && !failed_;
}

bool ControlServer::start(std::int64_t port) {
  if (listener_) return true;
  if (port < 0 || port > std::numeric_limits<std::uint16_t>::max()) {
    log("the onboarding port {} is not between 0 and 65535", port);
    return false;
  }
  auto listener = LoopbackServer::open({.port = static_cast<std::uint16_t>(port),
                                        .label = "com.zephyl.tray.control",
                                        .readSize = maxReadBytes,
                                        .maxConnections = maxConnections},
                                       {.onAccepted = [this] { return reader(); },
                                        .onFailed =
                                            [this](const Error& error) {
                                              failed_ = true;
                                              log("onboarding listener failed: {}", error.message);
                                            }});
  if (listener) {
    listener_ = std::move(*listener);
    port_ = port;
  } else {
    log("could not start the onboarding listener: {}", listener.error().message);
  }
  return true;
}

void ControlServer::cancel() {
  stopping_.request_stop();
  if (listener_) listener_->cancel();
}

void ControlServer::setPendingRoute(std::string route) {
  const std::scoped_lock lock(routeLock_);
  pendingRoute_ = std::move(route);
}

LoopbackServer::Reader ControlServer::reader() {
  return [this, incoming = IncomingRequest()](const Peer& peer, std::string_view received) mutable {
    return receive(incoming, peer, received);
  };
}

LoopbackServer::Verdict ControlServer::receive(IncomingRequest& incoming, const Peer& peer,
                                               std::string_view received) {
  using Verdict = LoopbackServer::Verdict;
  using Stage = HTTPRequestParser::Stage;
  if (received.size() > maxRequestBytes) {
    answers::refuse(peer, HTTPStatus::payloadTooLarge, "request too large");
    return Verdict::complete;
  }
  const Stage stage = incoming.parser.advance(received);
  if (stage == Stage::head || stage == Stage::invalid) return Verdict::incomplete;
  const HTTPRequest& request = incoming.parser.request();
  if (!incoming.authorized && !isAuthorized(request)) {
    answers::refuse(peer, HTTPStatus::forbidden, "bad or missing onboarding token");
    return Verdict::complete;
  }
  incoming.authorized = true;
  if (stage == Stage::body) return Verdict::incomplete;
  dispatch(peer, request);
  return Verdict::complete;
}

bool ControlServer::isAuthorized(const HTTPRequest& request) const {
  const auto presented = request.header(tokenHeader);
  return presented && equalSecrets(*presented, token_);
}

}  // namespace zephyl
