#include "ZephylTray/Control/ControlAnswers.hpp"

#include <memory>
#include <utility>

#include "System/Data/Format.hpp"
#include "System/Data/Text.hpp"

namespace zephyl::answers {

namespace {

std::string message(HTTPStatus status, const json::Object& json) {
  std::string body = json::compact(json);
  if (!isValidUTF8(body)) body = "{}";
  return formatText(
      "HTTP/1.1 {}\r\n"
      "Content-Type: application/json\r\n"
      "Content-Length: {}\r\n"
      "Connection: close\r\n\r\n{}",
      statusText(status), body.size(), body);
}

}  // namespace

void respond(const Peer& peer, HTTPStatus status, const json::Object& json) {
  peer.send(message(status, json));
}

void refuse(const Peer& peer, HTTPStatus status, std::string_view reason) {
  peer.refuse(message(status, {{"error", reason}}));
}

void fail(const Peer& peer, HTTPStatus status, std::string_view message) {
  respond(peer, status, {{"error", message}});
}

void reply(const Peer& peer, const Failure& result) {
  if (result) return fail(peer, HTTPStatus::badRequest, *result);
  respond(peer, HTTPStatus::ok, {{"ok", true}});
}

Pending::Pending(Peer peer, HTTPStatus failureStatus)
    : peer_(std::move(peer)), failureStatus_(failureStatus) {}

Pending::~Pending() {
  fail(peer_, failureStatus_, shuttingDown);  // ignored if the peer was answered
}

std::function<void(Failure)> replyLater(const Peer& peer) {
  return [pending = std::make_shared<Pending>(peer, HTTPStatus::badRequest)](
             const Failure& result) { reply(pending->peer(), result); };
}

}  // namespace zephyl::answers
