#include <algorithm>
#include <memory>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "Support/Eventually.hpp"
#include "Support/TrayWorld.hpp"
#include "System/Concurrency/MainLoop.hpp"
#include "System/Concurrency/Reactor.hpp"
#include "System/Concurrency/SystemClock.hpp"
#include "System/Concurrency/ThreadPool.hpp"
#include "System/Processes/Guardian.hpp"
#include "System/Processes/SystemProcessLauncher.hpp"
#include "ZephylTray/Agent/AgentProcess.hpp"
#include "ZephylTray/Registry/Servers.hpp"

namespace zephyl {
namespace {

using namespace std::chrono_literals;

/// Measures repeatedly, for `length`, how long a task waits for the main loop.
std::vector<Duration> mainLoopDelays(MainLoop& mainLoop, std::chrono::milliseconds length) {
  std::vector<Duration> delays;
  std::thread prober([&] {
    const auto end = std::chrono::steady_clock::now() + length;
    while (std::chrono::steady_clock::now() < end) {
      const auto asked = std::chrono::steady_clock::now();
      (void)mainLoop.sync([&] { delays.push_back(std::chrono::steady_clock::now() - asked); });
      std::this_thread::sleep_for(1ms);
    }
    mainLoop.quit();
  });
  mainLoop.run();
  prober.join();
  std::ranges::sort(delays);
  return delays;
}

TEST(Flood, AnAgentThatFloodsItsOutputDoesNotDelayTheMainLoop) {
  const test::TrayWorld world;
  const test::ScopedVariable port("AGENT_TRAY_PORT", "1");
  world.addAgent(
      "#!/bin/sh\nexec yes 'a line about as long as the lines of most logs are, all in all'\n");
  auto guardian = Guardian::start();
  ASSERT_TRUE(guardian);
  MainLoop mainLoop;
  ThreadPool pool;
  Reactor reactor;
  SystemClock clock(reactor);
  SystemProcessLauncher launcher(reactor, *guardian);
  const Servers::Store servers(pool, clock);
  const auto agent =
      std::make_shared<AgentProcess>(Runtime{mainLoop, reactor, pool, clock, launcher});

  agent->start();
  ASSERT_TRUE(
      test::eventually([&] { return agent->recentLog().size() == AgentProcess::maxLogLines; }));
  const auto delays = mainLoopDelays(mainLoop, 2s);
  ASSERT_GT(delays.size(), 500U);
  const auto p99 = delays[delays.size() * 99 / 100];
  RecordProperty("p99_microseconds", static_cast<int>(p99 / 1us));
  RecordProperty("longest_microseconds", static_cast<int>(delays.back() / 1us));
  EXPECT_LT(p99, 20ms);

  agent->stop();
  agent->awaitExit(clock.now() + AgentProcess::terminationGrace);
  EXPECT_TRUE(test::eventually([&] { return !agent->isManaged(); }));
}

}  // namespace
}  // namespace zephyl
