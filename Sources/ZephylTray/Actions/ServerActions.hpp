#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "Desktop/Dialogs.hpp"
#include "System/Concurrency/Clock.hpp"
#include "System/Data/Result.hpp"
#include "System/Data/Secret.hpp"
#include "ZephylTray/Registry/Servers.hpp"

namespace zephyl {

/// Joins, changes and removes servers: changes the registry, then brings tailnets, agent and menu
/// in step with it. Nothing is started or reported as done for a change that could not be saved.
///
/// Main thread only. Owned by a `shared_ptr`; dialogs hold it weakly.
class ServerActions : public std::enable_shared_from_this<ServerActions> {
 public:
  /// A message for the user; nullopt means success.
  using Failure = std::optional<std::string>;
  using Completion = std::function<void(Failure)>;

  struct Port {
    // The registry, as `Servers`
    std::function<ServerList()> all;
    std::function<std::optional<ServerEntry>(std::string_view fingerprint)> matching;
    std::function<Result<ServerEntry>(const std::string& label,
                                      const std::optional<std::string>& address,
                                      const std::optional<std::string>& fingerprint)>
        add;
    std::function<Result<void>(const std::string& id,
                               const std::function<void(ServerEntry&)>& mutation)>
        update;
    std::function<Result<void>(const std::string& id)> remove;
    /// Stores that this machine has redeemed an invite to the network with this fingerprint;
    /// nullopt: none that it is still a member of.
    std::function<void(const std::optional<std::string>& fingerprint)> setEnrolment;
    // Tailnets
    /// Replaces the tailnet of a server by one that enrols with the key.
    std::function<void(const ServerEntry&, SecretString preauthKey)> enrol;
    /// Stops the tailnet of a server, and keeps it from being started until it is resumed.
    std::function<void(const std::string& id)> suspendTailnet;
    std::function<void(const std::string& id)> resumeTailnet;
    /// Calls `then` later, when the children of all tailnets that have been stopped have ended.
    std::function<void(Task then)> whenTailnetsEnded;
    /// Starts and stops tailnets as the registry says.
    std::function<void()> syncTailnets;
    // The rest of the tray
    std::function<void()> restartAgent;
    /// As `Dialogs::presentAlert`.
    std::function<Dialogs::Handle(const Alert&, std::function<void(std::optional<AlertAnswer>)>)>
        ask;
  };

  explicit ServerActions(Port port) : port_(std::move(port)) {}

  /// What is shown of the servers has changed. Set before the first operation.
  std::function<void()> onChange;

  /// Joins a server with an invite key: registers it, starts its tailnet in enrolment mode and
  /// restarts the agent. Changes nothing if the key cannot be read. A server that cannot be saved
  /// is not joined, and its key stays unused. Whether the server accepts the key shows later, in
  /// the state of its tailnet.
  Failure redeem(std::string_view key);
  /// Asks the user for an invite key and redeems it. Brings a prompt that is open to the front.
  void promptForInviteKey();

  /// Change one server. Fail, and change nothing, if there is no such server or the change cannot
  /// be saved.
  Failure setServerLabel(const std::string& id, const std::string& label);
  /// An empty accent gives the choice back to the server.
  Failure setServerAccent(const std::string& id, const std::string& accent);
  Failure setServerEnabled(const std::string& id, bool enabled);
  /// The server is removed, with the state of its tailnet, when the children of the tailnet have
  /// ended. Then, or after a failure, calls `done`.
  void removeServer(const std::string& id, const Completion& done);

  /// Completes an operation that may have stopped tailnets: passes on a failure at once, success
  /// when the children of the stopped tailnets have ended.
  void complete(Failure failure, const Completion& done) const;

  /// Enables a server because the user has asked for it in the menu. Shows a failure.
  void connectServer(const std::string& id);

 private:
  void redeemAnswer(const std::optional<AlertAnswer>& answer);
  [[nodiscard]] bool contains(const std::string& id) const;
  Failure removeStoppedServer(const std::string& id);
  void serversChanged();

  const Port port_;
  Dialogs::Handle inviteDialog_;
  Dialogs::Handle connectFailureDialog_;
};

}  // namespace zephyl
