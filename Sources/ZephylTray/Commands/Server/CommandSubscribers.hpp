#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "System/Concurrency/Clock.hpp"
#include "System/Data/JSON.hpp"
#include "System/Data/LogRing.hpp"
#include "ZephylTray/Commands/Server/CommandListener.hpp"

namespace zephyl {

class MainLoop;

/// The clients that follow the state or a log. While there are clients, a timer checks for changes
/// four times a second, so that many changes share a line. Otherwise no timer runs.
///
/// Main thread only. Owned by a `shared_ptr`. The timer holds it weakly.
class CommandSubscribers : public std::enable_shared_from_this<CommandSubscribers> {
 public:
  using Client = CommandListener::Client;
  static constexpr Duration interval = std::chrono::milliseconds(250);

  struct Port {
    /// Returns the state, which is sent if it differs from the last one.
    std::function<json::Value()> state;
    /// Returns the lines after a position in the agent's log or the log of a server's tailnet.
    std::function<LogTail(const std::optional<std::string>& serverId, std::uint64_t position)> log;
  };

  /// `mainLoop` and `clock` must outlive it.
  CommandSubscribers(MainLoop& mainLoop, Clock& clock, Port port)
      : mainLoop_(mainLoop), clock_(clock), port_(std::move(port)) {}

  /// Sends the state now, and again whenever it has changed.
  void watch(const Client& client);
  /// Sends the log of a server, or the agent's log, now, and later the lines that are added.
  void follow(const Client& client, std::optional<std::string> serverId);
  /// Removes a client that has disconnected.
  void remove(std::uint64_t clientId);

  [[nodiscard]] bool empty() const { return watchers_.empty() && followers_.empty(); }

 private:
  struct Watcher {
    Client client;
    std::string sent;  // the last sent state
  };
  struct Follower {
    Client client;
    std::optional<std::string> serverId;
    std::uint64_t position = 0;
  };

  void update();
  void update(Watcher& watcher, const std::string& state);
  void update(Follower& follower);
  [[nodiscard]] std::string currentState() const;
  void startTimer();

  MainLoop& mainLoop_;
  Clock& clock_;
  const Port port_;
  std::vector<Watcher> watchers_;
  std::vector<Follower> followers_;
  Timer timer_;  // set while there are clients
};

}  // namespace zephyl
