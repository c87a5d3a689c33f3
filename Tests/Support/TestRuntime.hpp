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

/// What components run on in a test: time stands still until the test moves it, children exist
/// only in the test, the test's thread is the main thread, and input and output are real.
struct TestRuntime {
  MainLoop mainLoop;
  ThreadPool pool;
  Reactor reactor;
  ManualClock clock;
  FakeLauncher launcher;
  Servers::Store servers{pool, clock};

  [[nodiscard]] Runtime runtime() { return {mainLoop, reactor, pool, clock, launcher}; }

  /// Lets what is on its way between the queues and the main thread arrive.
  void settle() {
    for (int round = 0; round < 3; ++round) {
      pool.waitUntilIdle();
      mainLoop.runPending();
    }
  }

  /// Moves time on, and lets what each timer sets in motion arrive before the next.
  void advance(Duration step) {
    clock.advance(step, [this] { settle(); });
    settle();
  }

  /// Runs main tasks until `condition` holds; false when it does not in ten seconds.
  bool runUntil(const std::function<bool()>& condition) {
    return eventually([&] {
      mainLoop.runPending();
      return condition();
    });
  }
};

}  // namespace zephyl::test
