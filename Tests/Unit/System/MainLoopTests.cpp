#include "System/Concurrency/MainLoop.hpp"

#include <atomic>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "Support/Eventually.hpp"

namespace zephyl {
namespace {

using namespace std::chrono_literals;

TEST(MainLoop, RunsTasksInOrderUntilItIsToldToQuit) {
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

TEST(MainLoop, ClosingBreaksASyncThatIsWaiting) {
  MainLoop loop;
  Result<int> answer = 0;
  std::thread caller([&] { answer = loop.sync([] { return 1; }); });
  ASSERT_TRUE(loop.waitForTask(10s));
  loop.close();
  caller.join();
  EXPECT_EQ(answer.error().message, "shutting down");
}

TEST(MainLoop, ClosingWaitsForNobodyAndDropsWhatComesLater) {
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

}  // namespace
}  // namespace zephyl
