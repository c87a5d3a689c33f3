#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>

#include "Desktop/Dialogs.hpp"
#include "System/Concurrency/Clock.hpp"
#include "System/Data/Result.hpp"
#include "System/Data/Secret.hpp"
#include "ZephylTray/Registry/Servers.hpp"

namespace zephyl {

/// Joins, changes and removes servers: changes the registry, then updates tailnets, agent and menu.
/// If a change cannot be saved, nothing is started and it is not reported as done.
///
/// Main thread only. Owned by a `shared_ptr`. Dialogs hold it weakly.
class ServerActions : public std::enable_shared_from_this<ServerActions> {
 public:
  /// A message for the user, or nullopt for success.
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
    /// Stores the fingerprint of the network for which this machine has redeemed an invite, or
    /// nullopt if it belongs to no network.
    std::function<void(const std::optional<std::string>& fingerprint)> setEnrolment;
    // Tailnets
    /// Replaces the tailnet of a server by one that enrols with the key.
    std::function<void(const ServerEntry&, SecretString preauthKey)> enrol;
    /// Stops the tailnet of a server and prevents its start until it is resumed.
    std::function<void(const std::string& id)> suspendTailnet;
    std::function<void(const std::string& id)> resumeTailnet;
    /// Calls `then` later, when the children of all stopped tailnets have ended.
    std::function<void(Task then)> whenTailnetsEnded;
    /// Starts and stops tailnets to match the registry.
    std::function<void()> syncTailnets;
    // The rest of the tray
    std::function<void()> restartAgent;
    /// As `Dialogs::presentAlert`.
    std::function<Dialogs::Handle(const Alert&, std::function<void(std::optional<AlertAnswer>)>)>
        ask;
  };

  explicit ServerActions(Port port) : port_(std::move(port)) {}

  /// Called when the displayed state of the servers has changed. Must be set before the first
  /// operation.
  std::function<void()> onChange;

  /// Joins a server with an invite key: registers it, starts its tailnet with the key and restarts
  /// the agent. Changes nothing if the key is malformed. If the server cannot be saved, it is not
  /// joined and its key stays unused. Whether the server accepts the key is reported later, in the
  /// state of its tailnet.
  Failure redeem(std::string_view key);
  /// Asks the user for an invite key and redeems it. Brings an open prompt to the front instead.
  void promptForInviteKey();

  /// These functions change one server. They fail and change nothing if there is no such server or
  /// the change cannot be saved.
  Failure setServerLabel(const std::string& id, const std::string& label);
  /// An empty accent restores the server's own color.
  Failure setServerAccent(const std::string& id, const std::string& accent);
  Failure setServerEnabled(const std::string& id, bool enabled);
  /// Removes the server and the state of its tailnet when the children of the tailnet have ended.
  /// Then, or after a failure, calls `done`. Fails if the server is joined again before that.
  void removeServer(const std::string& id, const Completion& done);

  /// Completes an operation that may have stopped tailnets. Reports a failure at once, and success
  /// when the children of the stopped tailnets have ended.
  void complete(Failure failure, const Completion& done) const;

  /// Enables a server for the menu's user, unless it is gone. Shows a failure.
  void connectServer(const std::string& id);

 private:
  void redeemAnswer(const std::optional<AlertAnswer>& answer);
  [[nodiscard]] bool contains(const std::string& id) const;
  Failure removeStoppedServer(const std::string& id);
  void serversChanged();

  const Port port_;
  Dialogs::Handle inviteDialog_;
  Dialogs::Handle connectFailureDialog_;
  std::set<std::string> beingRemoved_;  // by id
};

}  // namespace zephyl
