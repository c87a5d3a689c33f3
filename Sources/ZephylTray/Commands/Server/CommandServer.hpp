#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "System/Concurrency/Runtime.hpp"
#include "System/Data/Secret.hpp"
#include "ZephylTray/Commands/Protocol/CommandMessages.hpp"
#include "ZephylTray/Commands/Server/CommandListener.hpp"
#include "ZephylTray/Commands/Server/CommandReports.hpp"
#include "ZephylTray/Commands/Server/CommandSubscribers.hpp"

namespace zephyl {

/// Executes the commands that `zephyl-tray VERB` sends: reports the state and forwards the user's
/// requests, as the menu does. Any user's program may connect, but only programs of this user are
/// served (see CommandListener).
///
/// A request is parsed on the reactor's thread and executed on the main thread, where all functions
/// of the port are called. Owned by a `shared_ptr`. Requests hold it weakly.
class CommandServer : public std::enable_shared_from_this<CommandServer> {
 public:
  /// A message for the user, or nullopt for success.
  using Failure = std::optional<std::string>;
  using Completion = std::function<void(Failure)>;

  struct Port {
    CommandReports::Port reports;
    /// Returns the document of GET /diagnostics.
    std::function<json::Object()> diagnostics;
    std::function<LogTail(const std::optional<std::string>& serverId, std::uint64_t position)> log;
    /// Determines whether a panel shows the icon. Completes once, later, on the main thread. Null
    /// in modes without an icon.
    std::function<void(std::function<void(TrayHost)>)> findTrayHost;
    /// Decides a pending request like its prompt: "approve", "always" or "deny".
    std::function<void(const std::string& id, const std::string& decision, Completion done)> decide;
    std::function<Failure(std::string_view key)> join;
    /// Shows the desktop app, at a screen if given.
    std::function<Failure(const std::optional<std::string>& screen)> open;
    std::function<void()> restartAgent;
    /// Restarts the tailnet of a server, or of all servers. Returns how many were restarted.
    std::function<std::size_t(const std::optional<std::string>& serverId)> restartTailnet;
    std::function<void()> quit;
  };
  /// How long `status` waits for the query about the icon.
  static constexpr Duration hostLimit = std::chrono::milliseconds(800);
  /// The maximum number of requests that wait for the main thread. More are refused.
  static constexpr int maxWaiting = 64;

  CommandServer(const Runtime& runtime, Port port);

  /// Listens on the socket of the base directory, whose lock the caller must hold. Logs a failure,
  /// and the tray then runs without commands.
  void start(const std::string& baseDirectory);
  /// Closes all connections and removes the socket.
  void stop() { listener_.reset(); }
  /// Returns the path of the socket, or empty if there is none.
  [[nodiscard]] std::string path() const { return listener_ ? listener_->path() : ""; }

 private:
  using Client = CommandListener::Client;

  /// Runs on the reactor's thread and passes a request to the main thread.
  void receive(const Client& client, std::string_view line);

  void perform(const Client& client, const commandRequests::Status& request);
  void perform(const Client& client, const commandRequests::Servers& request) const;
  void perform(const Client& client, const commandRequests::Folders& request) const;
  void perform(const Client& client, const commandRequests::Requests& request) const;
  void perform(const Client& client, const commandRequests::Diagnostics& request) const;
  void perform(const Client& client, const commandRequests::Logs& request) const;
  void perform(const Client& client, const commandRequests::Answer& request) const;
  void perform(const Client& client, const commandRequests::Join& request) const;
  void perform(const Client& client, const commandRequests::Open& request) const;
  void perform(const Client& client, const commandRequests::RestartAgent& request) const;
  void perform(const Client& client, const commandRequests::RestartTailnet& request) const;
  void perform(const Client& client, const commandRequests::Quit& request) const;
  void perform(const Client& client, const commandRequests::Watch& request) const;

  void sendStatusToWaiting();

  const Runtime runtime_;
  const Port port_;
  const CommandReports reports_;
  const std::shared_ptr<CommandSubscribers> subscribers_;
  TrayHost host_;  // the last result
  bool findingHost_ = false;
  std::vector<Client> waitingForHost_;
  Timer hostTimer_;
  std::atomic<int> waiting_ = 0;  // requests that wait for the main thread
  std::unique_ptr<CommandListener> listener_;
};

}  // namespace zephyl
