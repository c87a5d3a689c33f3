#include "Desktop/Client/ServerState.hpp"

namespace zephyl::sandbox::desktop {

ServerState stateOf(const ServerEntry& server) {
  if (!server.enabled) return ServerState::disabled;
  if (server.enrolled) return ServerState::connected;
  if (server.running) return ServerState::networkUp;
  return server.usesTailnet ? ServerState::networkDown : ServerState::notConnected;
}

std::string_view wordsFor(ServerState state) {
  switch (state) {
    case ServerState::disabled:
      return "disabled";
    case ServerState::connected:
      return "connected";
    case ServerState::networkUp:
      return "network up";
    case ServerState::networkDown:
      return "network down";
    case ServerState::notConnected:
      break;
  }
  return "not connected";
}

std::vector<Problem> problemsOf(const ServerEntry& server) {
  std::vector<Problem> problems;
  if (server.enrolError) {
    problems.push_back({*server.enrolError,
                        "The server did not accept the invite key. Ask for a fresh invite, and "
                        "join again with it."});
  }
  if (server.tailnetStalled) {
    problems.push_back({*server.tailnetStalled,
                        "The private network failed repeatedly, so the tray tries it again only "
                        "rarely. “Tailnet Logs…” in the tray's menu shows why it failed."});
  }
  if (server.agentError) {
    problems.push_back({*server.agentError,
                        "The agent cannot use this server. It tries again by itself; restart the "
                        "agent if this does not pass."});
  }
  if (server.addressUnresolved) {
    problems.push_back({"cannot resolve " + *server.addressUnresolved,
                        "The server was not found on its private network. It may be turned off; "
                        "the tray keeps looking for it."});
  }
  return problems;
}

}  // namespace zephyl::sandbox::desktop
