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
#include <vector>

#include "System/Data/JSON.hpp"
#include "System/Data/Result.hpp"
#include "System/Network/LoopbackServer.hpp"
#include "ZephylTray/Control/ControlAnswers.hpp"
#include "ZephylTray/Control/HTTPRequest.hpp"

namespace zephyl {

class MainLoop;

/// The control API: a small HTTP server on 127.0.0.1 that lets the desktop app join, manage and
/// diagnose servers. One request per connection. Every request must carry the token of this run,
/// which only the desktop app receives. It is then dispatched to the handler of its route.
///
/// Requests are read, checked and dispatched one at a time on the thread "com.zephyl.tray.control".
/// The token is checked as soon as the head of a request is complete. Most handlers run on the main
/// thread while the control thread waits. The main thread never waits for the control thread. A
/// handler with a completion must not wait, and may complete later on any thread. If its completion
/// is destroyed without a call, the answer is that the tray is shutting down. After the server is
/// destroyed, nothing is answered.
///
/// Owned by the controller, which sets the handlers before `start`. Must be created and destroyed
/// on the main thread. `mainLoop` must outlive it.
class ControlServer {
 public:
  using Failure = answers::Failure;
  using Completion = std::function<void(Failure)>;
  using RootsCompletion = std::function<void(Result<std::vector<json::Object>>)>;

  /// The operations of the routes. The route of an unset one answers with success and no data, or
  /// with `noEndpoint`.
  struct Handlers {
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
  };

  static constexpr std::size_t maxRequestBytes = 65536;
  static constexpr std::size_t maxReadBytes = 16384;
  static constexpr std::size_t maxConnections = 256;
  /// The answer of handlers when the controller is gone.
  static constexpr auto shuttingDown = answers::shuttingDown;

  explicit ControlServer(MainLoop& mainLoop);
  /// Answers requests that wait for the main thread with "shutting down".
  ~ControlServer();
  ControlServer(const ControlServer&) = delete;
  ControlServer& operator=(const ControlServer&) = delete;

  Handlers handlers;

  /// Returns the secret of this run: 32 hexadecimal digits. Must not be logged.
  [[nodiscard]] const std::string& token() const { return token_; }

  /// Opens the listener on `port`. If that fails, logs one line and does not listen. Does nothing
  /// if it is open. Returns false if `port` is not a port number.
  bool start(std::int64_t port);
  /// Returns whether requests can reach this server. Main thread only.
  [[nodiscard]] bool isListening() const;
  /// Returns the port of the listener. Requires `isListening`.
  [[nodiscard]] std::int64_t port() const { return port_; }
  /// Closes the listener. Requests that wait for the main thread receive the answer that the tray
  /// is shutting down.
  void cancel();

  /// Sets the screen that the desktop app should show. It is sent once, with the next GET /status.
  /// A newer screen replaces it. Callable from any thread.
  void setPendingRoute(std::string route);

 private:
  using Peer = LoopbackServer::Peer;

  /// The request of one connection while it is received.
  struct IncomingRequest {
    HTTPRequestParser parser;
    bool authorized = false;  ///< its head contained the token
  };
  /// An authorized request, to be passed to its handler.
  struct Call {
    Peer peer;
    std::string id;  ///< the server's id, for routes that contain one
    std::string_view body;
  };
  using RouteHandler = void (ControlServer::*)(const Call&);

  // Transport (ControlServer.cpp), on the control thread:
  [[nodiscard]] LoopbackServer::Reader reader();
  LoopbackServer::Verdict receive(IncomingRequest& incoming, const Peer& peer,
                                  std::string_view received);
  [[nodiscard]] bool isAuthorized(const HTTPRequest& request) const;

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

  /// Runs `handler` on the main thread, waits for it and sends its result.
  void replyFromMain(const Call& call, const std::function<Failure()>& handler);
  /// Runs `handler` on the main thread, waits for it, and answers when it completes.
  void completeFromMain(const Call& call, const std::function<void(Completion)>& handler);
  /// Does the same for a handler that returns an object.
  void respondFromMain(const Call& call, const std::function<json::Object()>& provider);
  std::optional<std::string> consumePendingRoute();

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
