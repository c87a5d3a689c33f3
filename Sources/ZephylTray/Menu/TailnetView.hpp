#pragma once

#include "ZephylTray/Tailnet/TailnetProcess.hpp"

namespace zephyl {

/// What a server's tailnet process shows of itself, as it is at one moment.
struct TailnetView {
  bool running = false;
  TailnetState state;
  bool hasLog = false;

  static TailnetView of(const TailnetProcess& tailnet) {
    return {.running = tailnet.isRunning(), .state = tailnet.state(), .hasLog = tailnet.hasLog()};
  }

  /// Whether the server can be reached through it.
  [[nodiscard]] bool usable() const { return running && state.boundAddress; }
};

}  // namespace zephyl
