#pragma once

#include "Support/ManualClock.hpp"
#include "System/Concurrency/MainLoop.hpp"
#include "System/Concurrency/Reactor.hpp"
#include "System/Concurrency/Runtime.hpp"
#include "System/Concurrency/ThreadPool.hpp"
#include "System/Processes/Guardian.hpp"
#include "System/Processes/SystemProcessLauncher.hpp"
#include "ZephylTray/Registry/Servers.hpp"

namespace zephyl::test {

/// A runtime for components with real children and a manual clock. Must be created while the
/// process has one thread.
struct RealChildren {
  Guardian guardian = Guardian::start().value();
  MainLoop mainLoop;
  ThreadPool pool;
  Reactor reactor;
  ManualClock clock;
  SystemProcessLauncher launcher{reactor, guardian};
  Servers::Store servers{pool, clock};
  ThreadPoolDrain drain{pool};

  [[nodiscard]] Runtime runtime() { return {mainLoop, reactor, pool, clock, launcher}; }

  /// Runs all pending tasks of the queues and the main thread. Does not wait for children.
  void settle() {
    pool.waitUntilIdle();
    mainLoop.runPending();
  }

  void advance(Duration step) {
    clock.advance(step, [this] { settle(); });
    settle();
  }
};

}  // namespace zephyl::test
