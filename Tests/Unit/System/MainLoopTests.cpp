#include "System/Concurrency/MainLoop.hpp"

#include <algorithm>
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "Support/Eventually.hpp"
#include "Support/LogCapture.hpp"
#include "Support/ManualClock.hpp"

namespace zephyl {
namespace {

using namespace std::chrono_literals;

TEST(MainLoop, RunsTasksInOrderUntilQuit) {
  MainLoop loop;
  std::vector<int> seen;
  loop.async([&] { seen.push_back(1); });
  loop.async([&] {
    seen.push_back(2);
    loop.quit();
  });
  loop.async([&] { seen.push_back(3); });
  loop.run();
  EXPECT_EQ(seen, (std::vector<int>{1, 2}));
}

TEST(MainLoop, SyncRunsOnTheMainThreadAndReturnsItsValue) {
  MainLoop loop;
  Result<bool> wasMain = Error{"not called"};
  std::thread caller([&] {
    wasMain = loop.sync([&] { return loop.isCurrent(); });
    loop.quit();
  });
  loop.run();
  caller.join();
  EXPECT_TRUE(*wasMain);
}

TEST(MainLoop, RunPendingLeavesTheTasksThatItsTasksAdd) {
  MainLoop loop;
  int ran = 0;
  loop.async([&] {
    ++ran;
    loop.async([&] { ++ran; });
  });
  loop.runPending();
  EXPECT_EQ(ran, 1);
  loop.runPending();
  EXPECT_EQ(ran, 2);
}

TEST(MainLoop, ClosingReleasesAWaitingSync) {
  MainLoop loop;
  Result<int> answer = 0;
  std::thread caller([&] { answer = loop.sync([] { return 1; }); });
  ASSERT_TRUE(loop.waitForTask(10s));
  loop.close();
  caller.join();
  EXPECT_EQ(answer.error().message, "shutting down");
}

TEST(MainLoop, ClosingDoesNotWaitAndDropsLaterTasks) {
  MainLoop loop;
  loop.close();
  loop.async([] { FAIL(); });
  loop.runPending();
  std::thread([&] { EXPECT_TRUE(loop.sync([] {}).has_error()); }).join();
}

TEST(MainLoop, ASyncThatIsRunningWhenTheLoopClosesStillDeliversItsValue) {
  MainLoop loop;
  Result<int> answer = 0;
  std::thread caller([&] {
    answer = loop.sync([&] {
      loop.close();
      return 5;
    });
  });
  ASSERT_TRUE(loop.waitForTask(10s));
  loop.runPending();
  caller.join();
  EXPECT_EQ(*answer, 5);
}

TEST(MainLoop, NobodyHangsWhenItClosesUnderManyCallers) {
  for (int round = 0; round < 200; ++round) {
    MainLoop loop;
    std::atomic<int> answered = 0;
    std::vector<std::thread> callers;
    callers.reserve(4);
    for (int i = 0; i < 4; ++i) {
      callers.emplace_back([&] {
        (void)loop.sync([] { return 1; });
        ++answered;
      });
    }
    loop.runPending();
    loop.close();
    for (auto& caller : callers) caller.join();
    EXPECT_EQ(answered, 4);
  }
}

TEST(MainLoop, RunsADelayedTaskOnceOnTheMainThread) {
  MainLoop loop;
  test::ManualClock clock;
  int ran = 0;
  const Timer timer = loop.after(clock, 2s, [&] { ++ran; });
  clock.advance(1999ms);
  loop.runPending();
  EXPECT_EQ(ran, 0);
  clock.advance(1ms);
  EXPECT_EQ(ran, 0) << "on the clock's thread";
  loop.runPending();
  EXPECT_EQ(ran, 1);
  clock.advance(10s);
  loop.runPending();
  EXPECT_EQ(ran, 1);
}

TEST(MainLoop, RepeatsATaskUntilItsTimerIsCancelled) {
  MainLoop loop;
  test::ManualClock clock;
  int ran = 0;
  Timer timer = loop.every(clock, 2s, [&] {
    if (++ran == 3) timer.cancel();
  });
  clock.advance(10s, [&] { loop.runPending(); });
  EXPECT_EQ(ran, 3);
  EXPECT_EQ(clock.pendingTimers(), 0U);
}

TEST(MainLoop, CancellingATimerDropsATaskThatIsAlreadyDue) {
  MainLoop loop;
  test::ManualClock clock;
  bool ran = false;
  Timer timer = loop.after(clock, 1s, [&] { ran = true; });
  clock.advance(1s);
  timer.cancel();
  loop.runPending();
  EXPECT_FALSE(ran);
}

TEST(MainLoop, RunsACompletionLaterWithItsArguments) {
  MainLoop loop;
  std::vector<std::string> received;
  const auto done = loop.later([&](const std::string& text, int count) {
    received.push_back(text + std::to_string(count));
  });
  std::thread([&] { done("a", 1); }).join();
  std::string text = "b";
  done(text, 2);
  text = "changed";
  EXPECT_TRUE(received.empty());
  loop.runPending();
  EXPECT_EQ(received, (std::vector<std::string>{"a1", "b2"}));
}

/// A loop whose tasks appear to last as long as the test sets.
class WatchedLoop : public ::testing::Test {
 protected:
  void runWithin(Task task) {
    loop_.async(std::move(task));
    loop_.async([this] { loop_.quit(); });
    loop_.run();
  }

  Instant now_;
  MainLoop loop_{[this] { return now_; }};
};

TEST_F(WatchedLoop, LogsATaskThatIsStuckWhenAnotherIsAdded) {
  const auto log = test::logOf([this] {
    runWithin([this] {
      now_ += 2500ms;
      std::thread([this] {
        loop_.async([] {});
        loop_.async([] {});
      }).join();
      now_ += 10s;
    });
  });
  EXPECT_NE(log.find("running one task for 2.5 s"), std::string::npos) << log;
  EXPECT_NE(log.find("LogsATaskThatIsStuck"), std::string::npos) << log;
  EXPECT_EQ(std::ranges::count(log, '\n'), 1) << log;
}

TEST_F(WatchedLoop, LogsALongTaskAtItsEndIfNobodyAddedOne) {
  const auto log = test::logOf([this] { runWithin([this] { now_ += 3s; }); });
  EXPECT_NE(log.find("was blocked by one task for 3.0 s"), std::string::npos) << log;
}

TEST_F(WatchedLoop, LogsNothingForShortTasksAndIdleTime) {
  EXPECT_EQ(test::logOf([this] {
              runWithin([this] { now_ += TaskWatch::limit; });
              now_ += 1h;
              loop_.async([] {});
            }),
            "");
}

TEST_F(WatchedLoop, NamesTheTaskOfATimerAndOfAVisit) {
  test::ManualClock clock;
  const Timer timer = loop_.after(clock, 1s, [this] { now_ += 3s; });
  clock.advance(1s);
  std::thread visitor;
  const auto log = test::logOf([&] {
    visitor = std::thread([this] {
      static_cast<void>(loop_.sync([this] { now_ += 4s; }));
      loop_.quit();
    });
    loop_.run();
    visitor.join();
  });
  EXPECT_NE(log.find("3.0 s: zephyl::(anonymous namespace)::WatchedLoop_NamesTheTask"),
            std::string::npos)
      << log;
  EXPECT_NE(log.find("4.0 s: zephyl::MainLoop::sync"), std::string::npos) << log;
}

}  // namespace
}  // namespace zephyl
