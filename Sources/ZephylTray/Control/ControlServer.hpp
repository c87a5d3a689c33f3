#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "System/Data/JSON.hpp"
#include "System/Data/Result.hpp"
#include "System/Network/LoopbackServer.hpp"
#include "ZephylTray/Control/HTTPRequest.hpp"
#include "ZephylTray/Control/HTTPStatus.hpp"

namespace zephyl {

class MainLoop;

/// The control API: a small HTTP server on 127.0.0.1 through which the desktop app joins, manages
/// and diagnoses. One request per connection. Every request must carry the token of this run,
/// which only the desktop app is given; then it goes to the handler of its route.
///
/// Requests are read, checked and dispatched one at a time on the thread "com.zephyl.tray.control".
/// The token is checked as soon as the head of a request is complete.
/// Most handlers run on the main thread while the control thread waits; the main thread never
/// waits for it. A handler with a completion must not wait, and may complete later, on any thread;
/// a completion that is destroyed unused answers that the tray is shutting down. Once the
/// server is gone nothing is answered any more.
///
/// Owned by the controller, which sets the handlers before `start`. Created and destroyed on the
/// main thread, which `mainLoop` outlives.
class ControlServer {
 public:
  /// A message for the user; nullopt means success.
  using Failure = std::optional<std::string>;
  using Completion = std::function<void(Failure)>;
  using RootsCompletion = std::function<void(Result<std::vector<json::Object>>)>;

  static constexpr std::size_t maxRequestBytes = 65536;
  static constexpr std::size_t maxReadBytes = 16384;
  static constexpr std::size_t maxConnections = 256;
  /// What handlers answer when the controller is gone.
  static constexpr auto shuttingDown = "The Zephyl tray is shutting down.";

  explicit ControlServer(MainLoop& mainLoop);
  /// Answers requests that still wait for the main thread with "shutting down".
  ~ControlServer();
  ControlServer(const ControlServer&) = delete;
  ControlServer& operator=(const ControlServer&) = delete;

  // Called on the main thread:
  std::function<void(const std::string& inviteKey, Completion)> onInvite;
  std::function<json::Object()> statusProvider;
  std::function<std::vector<json::Object>()> serversProvider;
  std::function<Failure(const std::string& id, const std::string& label)> onSetLabel;
  std::function<Failure(const std::string& id, const std::string& accent)> onSetAccent;
  std::function<void(const std::string& id, bool enabled, Completion)> onSetEnabled;
  std::function<void(const std::string& id, Completion)> onRemove;
  std::function<json::Object()> diagnosticsProvider;
  std::function<void()> onRestartAgent;
  // Called on the control thread:
  std::function<void(RootsCompletion)> rootsProvider;
  std::function<void(const std::string& id, Completion)> onAddRoot;
  std::function<void(const std::string& id, const std::string& root, bool shared, Completion)>
      onSetRootShared;

  /// The secret of this run: 32 hexadecimal digits. Never logged.
  [[nodiscard]] const std::string& token() const { return token_; }

  /// Opens the listener on `port`; when that fails one line is logged and nothing listens. Does
  /// nothing while there is one. False when `port` is no port at all.
  bool start(std::int64_t port);
  /// Whether requests can reach this server. Main thread only.
  [[nodiscard]] bool isListening() const;
  /// The port of the listener. Requires `isListening`.
  [[nodiscard]] std::int64_t port() const { return port_; }
  /// Closes the listener. Requests that still wait for the main thread are answered that
  /// the tray is shutting down.
  void cancel();

  /// A screen that the desktop app is to show: handed out once, with the next GET /status. A newer
  /// one replaces it. From any thread.
  void setPendingRoute(std::string route);

 private:
  using Peer = LoopbackServer::Peer;

  /// The request of one connection while it arrives.
  struct IncomingRequest {
    HTTPRequestParser parser;
    bool authorized = false;  ///< its head carried the token
  };
  /// A request that carried the token, under way to its handler.
  struct Call {
    Peer peer;
    std::string id;  ///< the server's, on routes that have one
    std::string_view body;
  };
  /// A peer that is answered later: with `shuttingDown` should everybody let go of it before.
  struct PendingReply {
    PendingReply(Peer waiting, HTTPStatus status)
        : peer(std::move(waiting)), failureStatus(status) {}
    ~PendingReply();
    PendingReply(const PendingReply&) = delete;
    PendingReply& operator=(const PendingReply&) = delete;

    const Peer peer;
    const HTTPStatus failureStatus;
  };
  using RouteHandler = void (ControlServer::*)(const Call&);

  // Transport (ControlServer.cpp), on the control thread:
  [[nodiscard]] LoopbackServer::Reader reader();
  LoopbackServer::Verdict receive(IncomingRequest& incoming, const Peer& peer,
                                  std::string_view received);
  [[nodiscard]] bool isAuthorized(const HTTPRequest& request) const;
  static void respond(const Peer& peer, HTTPStatus status, const json::Object& json);
  static void refuse(const Peer& peer, HTTPStatus status, std::string_view reason);
  static void fail(const Peer& peer, HTTPStatus status, std::string_view message);
  static void reply(const Peer& peer, const Failure& result);
  static Completion asyncReply(const Peer& peer);

  // Routes (ControlServerRoutes.cpp), on the control thread:
  void dispatch(const Peer& peer, const HTTPRequest& request);
  void getStatus(const Call& call);
  void postInvite(const Call& call);
  void getServers(const Call& call);
  void getDiagnostics(const Call& call);
  void postAgentRestart(const Call& call);
  void postLabel(const Call& call);
  void postAccent(const Call& call);
  void postEnabled(const Call& call);
  void deleteServer(const Call& call);
  void getRoots(const Call& call);
  void postRoot(const Call& call);
  void postRootScope(const Call& call);

  /// Runs `handler` on the main thread, waits for it and answers with what it returned.
  void replyFromMain(const Call& call, const std::function<Failure()>& handler);
  /// Runs `handler` on the main thread, waits for it, and answers when it completes.
  void completeFromMain(const Call& call, const std::function<void(Completion)>& handler);
  /// The same for a handler that gives an object.
  void respondFromMain(const Call& call, const std::function<json::Object()>& provider);
  std::optional<std::string> takePendingRoute();

  MainLoop& mainLoop_;
  const std::string token_;
  std::stop_source stopping_;
  std::mutex routeLock_;
  std::optional<std::string> pendingRoute_;  // guarded by routeLock_
  std::int64_t port_ = 0;
  std::atomic<bool> failed_ = false;  // set on the control thread
  std::unique_ptr<LoopbackServer> listener_;
};

}  // namespace zephyl
