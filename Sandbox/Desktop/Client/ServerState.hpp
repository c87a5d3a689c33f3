#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Desktop/Client/Records.hpp"

/// What the fields of a server say together.
namespace zephyl::sandbox::desktop {

enum class ServerState { disabled, connected, networkUp, networkDown, notConnected };

ServerState stateOf(const ServerEntry& server);
/// In lower case, such as "network down".
std::string_view wordsFor(ServerState state);

struct Problem {
  /// As the tray, the agent or the server reports it.
  std::string reason;
  /// What it means and what the user can do.
  std::string_view explanation;
};

/// Everything that is wrong with the connection to a server, the most important first.
std::vector<Problem> problemsOf(const ServerEntry& server);

}  // namespace zephyl::sandbox::desktop
