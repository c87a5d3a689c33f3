#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Desktop/Client/Records.hpp"

/// The state of a server, derived from its fields.
namespace zephyl::sandbox::desktop {

enum class ServerState { disabled, connected, networkUp, networkDown, notConnected };

ServerState stateOf(const ServerEntry& server);
/// In lower case, such as "network down".
std::string_view wordsFor(ServerState state);

struct Problem {
  /// As the tray, the agent or the server reports it.
  std::string reason;
  /// Its meaning and the user's options.
  std::string_view explanation;
};

/// Returns all problems of the connection to a server, the most important first.
std::vector<Problem> problemsOf(const ServerEntry& server);

}  // namespace zephyl::sandbox::desktop
