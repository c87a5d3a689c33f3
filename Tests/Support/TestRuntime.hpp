#pragma once

#include <functional>

#include "Support/Eventually.hpp"
#include "Support/FakeLauncher.hpp"
#include "Support/ManualClock.hpp"
#include "System/Concurrency/MainLoop.hpp"
#include "System/Concurrency/Reactor.hpp"
#include "System/Concurrency/Runtime.hpp"
#include "System/Concurrency/ThreadPool.hpp"
#include "ZephylTray/Registry/Servers.hpp"

namespace zephyl::test {

/// A runtime for components in a test, with a manual clock, fake children and real input and
/// output. The test's thread is the main thread.
struct TestRuntime {
  MainLoop mainLoop;
  ThreadPool pool;
  Reactor reactor;
  ManualClock clock;
  FakeLauncher launcher;
  Servers::Store servers{pool, clock};
  ThreadPoolDrain drain{pool};

  [[nodiscard]] Runtime runtime() { return {mainLoop, reactor, pool, clock, launcher}; }

  /// Runs all pending tasks of the queues and the main thread.
  void settle() {
    for (int round = 0; round < 3; ++round) {
      pool.waitUntilIdle();
      mainLoop.runPending();
    }
  }

  /// Advances the clock, and runs all pending tasks after each timer.
  void advance(Duration step) {
    clock.advance(step, [this] { settle(); });
    settle();
  }

  /// Runs main tasks until `condition` holds. Returns false if it does not hold within ten seconds.
  bool runUntil(const std::function<bool()>& condition) {
    return eventually([&] {
      mainLoop.runPending();
      return condition();
    });
  }
};

}  // namespace zephyl::test
