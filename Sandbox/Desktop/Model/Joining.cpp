#include "Desktop/Model/Joining.hpp"

#include <algorithm>
#include <utility>

#include "Desktop/Client/ServerState.hpp"

namespace zephyl::sandbox::desktop {
namespace {

/// The number of lists that may repeat an error of an earlier key before it is attributed to the
/// newest one.
constexpr int listsWithOldError = 5;

const ServerEntry* find(const std::vector<ServerEntry>& servers, const std::string& id) {
  const auto found = std::ranges::find(servers, id, &ServerEntry::id);
  return found == servers.end() ? nullptr : &*found;
}

}  // namespace

void Joining::begin(const std::vector<ServerEntry>& servers) {
  step_ = Step::sending;
  error_.clear();
  progress_ = "Checking the invite key…";
  before_ = servers;
  lists_ = 0;
}

void Joining::refused(std::string reason) {
  step_ = Step::idle;
  error_ = std::move(reason);
  progress_.clear();
}

void Joining::accepted() {
  step_ = Step::connecting;
  progress_ = "Starting the private network…";
}

void Joining::update(const std::vector<ServerEntry>& servers) {
  if (step_ != Step::connecting) return;
  ++lists_;
  const auto* const joined = findJoined(servers);
  if (joined == nullptr) return refused("The server was removed before it was connected.");
  serverId_ = joined->id;
  follow(*joined);
}

/// Returns the server of a key that added no server: the server of an earlier key, else one that is
/// not connected, else any.
const ServerEntry* Joining::findJoined(const std::vector<ServerEntry>& servers) const {
  for (const auto& server : servers) {
    if (find(before_, server.id) == nullptr) return &server;
  }
  const auto* const earlier = serverId_ ? find(servers, *serverId_) : nullptr;
  if (earlier != nullptr) return earlier;
  const auto waiting = std::ranges::find(servers, false, &ServerEntry::enrolled);
  if (waiting != servers.end()) return &*waiting;
  return servers.empty() ? nullptr : &servers.front();
}

void Joining::follow(const ServerEntry& server) {
  if (server.enrolError && !isStale(*server.enrolError)) {
    return refused("The server did not accept the invite key: " + *server.enrolError +
                   ". Ask for a fresh invite.");
  }
  if (stateOf(server) == ServerState::connected) {
    step_ = Step::connected;
    progress_.clear();
    return;
  }
  progress_ = server.running ? "Connecting to the server…" : "Starting the private network…";
  const auto problems = problemsOf(server);
  if (!server.enrolError && !problems.empty()) progress_ += " (" + problems.front().reason + ")";
}

/// The tray replaces the error of an earlier key only when it uses the new one.
bool Joining::isStale(const std::string& enrolError) {
  if (lists_ > listsWithOldError) return false;
  const auto* const earlier = serverId_ ? find(before_, *serverId_) : nullptr;
  return earlier != nullptr && earlier->enrolError == enrolError;
}

}  // namespace zephyl::sandbox::desktop
