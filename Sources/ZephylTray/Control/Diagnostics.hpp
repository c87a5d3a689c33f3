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

/// The facts for a bug report, collected at one moment. Contains no secrets.
struct Diagnostics {
  /// The number of newest lines of a tailnet's log that are included.
  static constexpr std::size_t maxLogLines = 40;

  struct Tray {
    std::string version;
    std::int64_t trayPort = 0;
    std::string repoRoot;
    bool standalone = false;  ///< whether the packaged runtime is used
  };
  struct Agent {
    bool running = false;  ///< whether a child of the tray runs
    bool managed = false;  ///< whether the tray launched it
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

  /// Returns the document of GET /diagnostics. Pure.
  [[nodiscard]] json::Object toJSON() const;
};

}  // namespace zephyl
