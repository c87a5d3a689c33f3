#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "System/Data/JSON.hpp"
#include "ZephylTray/Agent/AgentSnapshot.hpp"
#include "ZephylTray/Registry/Servers.hpp"
#include "ZephylTray/Tailnet/TailnetProcess.hpp"

namespace zephyl {

/// What a bug report needs to know, gathered at one moment. Nothing in it is secret.
struct Diagnostics {
  /// How many of the newest lines of a tailnet's log are included.
  static constexpr std::size_t maxLogLines = 40;

  struct Tray {
    std::string version;
    std::int64_t trayPort = 0;
    std::string repoRoot;
    bool standalone = false;  ///< the packaged runtime is in use
  };
  struct Agent {
    bool running = false;  ///< a child of the tray runs
    bool managed = false;  ///< the tray launched it
  };
  struct Tailnet {
    std::string serverId;
    bool running = false;
    TailnetState state;
    std::vector<std::string> log;
  };

  Tray tray;
  Agent agent;
  AgentSnapshot view;
  ServerList servers{{}};
  std::vector<Tailnet> tailnets;

  /// The document of GET /diagnostics. Pure.
  [[nodiscard]] json::Object toJSON() const;
};

}  // namespace zephyl
