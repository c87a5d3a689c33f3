#pragma once

#include "ZephylTray/Tailnet/TailnetProcess.hpp"

namespace zephyl {

/// The displayed state of a server's tailnet process at one moment.
struct TailnetView {
  bool running = false;
  TailnetState state;
  bool hasLog = false;

  static TailnetView of(const TailnetProcess& tailnet) {
    return {.running = tailnet.isRunning(), .state = tailnet.state(), .hasLog = tailnet.hasLog()};
  }

  /// Returns whether the server is reachable through it.
  [[nodiscard]] bool usable() const { return running && state.boundAddress; }
};

}  // namespace zephyl
