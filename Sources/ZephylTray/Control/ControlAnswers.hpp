#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "System/Data/JSON.hpp"
#include "System/Network/LoopbackServer.hpp"
#include "ZephylTray/Control/HTTPStatus.hpp"

/// The answers of the control API: JSON objects in HTTP responses. A peer receives only the first
/// answer. Callable from any thread.
namespace zephyl::answers {

using Peer = LoopbackServer::Peer;
/// A message for the user, or nullopt for success.
using Failure = std::optional<std::string>;

/// The answer when the controller is gone.
inline constexpr auto shuttingDown = "The Zephyl tray is shutting down.";

void respond(const Peer& peer, HTTPStatus status, const json::Object& json);
/// Answers with an error, also while the peer is still sending. See `LoopbackServer::Peer::refuse`.
void refuse(const Peer& peer, HTTPStatus status, std::string_view reason);
void fail(const Peer& peer, HTTPStatus status, std::string_view message);
/// Answers that a change was made, or that it failed.
void reply(const Peer& peer, const Failure& result);

/// A peer that is answered later. If it is destroyed without an answer, it sends `shuttingDown`.
class Pending {
 public:
  Pending(Peer peer, HTTPStatus failureStatus);
  ~Pending();
  Pending(const Pending&) = delete;
  Pending& operator=(const Pending&) = delete;

  [[nodiscard]] const Peer& peer() const { return peer_; }

 private:
  const Peer peer_;
  const HTTPStatus failureStatus_;
};

/// Returns a function that calls `reply` with its argument. If its last copy is destroyed without a
/// call, the answer is `shuttingDown`.
std::function<void(Failure)> replyLater(const Peer& peer);

}  // namespace zephyl::answers
