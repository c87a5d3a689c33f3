#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Desktop/Client/Records.hpp"

namespace zephyl::sandbox::desktop {

/// The progress of joining a server, from its invite key until the server is connected. The tray
/// refuses an invalid key at once, and reports later progress in the list of servers.
class Joining {
 public:
  enum class Step { idle, sending, connecting, connected };

  /// The key was sent. `servers` are the known ones.
  void begin(const std::vector<ServerEntry>& servers);
  /// The tray refused the key, or could not be reached.
  void refused(std::string reason);
  /// The tray registered the server.
  void accepted();
  /// Follows the joined server through a newer list.
  void update(const std::vector<ServerEntry>& servers);
  /// Forgets a finished join.
  void reset() { *this = {}; }

  [[nodiscard]] Step step() const { return step_; }
  [[nodiscard]] bool isUnderWay() const {
    return step_ == Step::sending || step_ == Step::connecting;
  }
  /// Why the newest key was refused; empty if it was not.
  [[nodiscard]] const std::string& error() const { return error_; }
  /// The current step; empty unless a join is in progress.
  [[nodiscard]] const std::string& progress() const { return progress_; }
  /// The joined server; nullopt until it is known.
  [[nodiscard]] const std::optional<std::string>& serverId() const { return serverId_; }

 private:
  [[nodiscard]] const ServerEntry* findJoined(const std::vector<ServerEntry>& servers) const;
  void follow(const ServerEntry& server);
  [[nodiscard]] bool isStale(const std::string& enrolError);

  Step step_ = Step::idle;
  std::string error_;
  std::string progress_;
  std::optional<std::string> serverId_;
  std::vector<ServerEntry> before_;
  int lists_ = 0;  // since the key was accepted
};

}  // namespace zephyl::sandbox::desktop
