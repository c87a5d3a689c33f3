#include "System/Concurrency/SerialQueue.hpp"

#include <atomic>
#include <latch>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "Support/ManualClock.hpp"
#include "System/Concurrency/ThreadPool.hpp"

namespace zephyl {
namespace {

using namespace std::chrono_literals;

class SerialQueueTest : public ::testing::Test {
 protected:
  test::ManualClock clock_;
  ThreadPool pool_;
  SerialQueue queue_{"com.zephyl.test", pool_, clock_};
};

TEST_F(SerialQueueTest, KeepsItsLabel) {
  EXPECT_EQ(queue_.label(), "com.zephyl.test");
}

TEST_F(SerialQueueTest, RunsTasksInTheOrderOfTheirSubmission) {
  std::vector<int> seen;
  for (int i = 0; i < 1000; ++i) queue_.async([&seen, i] { seen.push_back(i); });
  queue_.sync([] {});
  ASSERT_EQ(seen.size(), 1000U);
  for (int i = 0; i < 1000; ++i) EXPECT_EQ(seen[i], i);
}

TEST_F(SerialQueueTest, RunsSyncOnTheCallersThreadWhenIdle) {
  const auto ranOn = queue_.sync([] { return std::this_thread::get_id(); });
  EXPECT_EQ(ranOn, std::this_thread::get_id());
  EXPECT_EQ(pool_.threadCount(), 1U) << "every pool keeps one thread";
}

TEST_F(SerialQueueTest, SyncWaitsForEarlierTasks) {
  std::latch release(1);
  int value = 0;
  queue_.async([&] {
    release.wait();
    value = 1;
  });
  std::thread releaser([&] { release.count_down(); });
  EXPECT_EQ(queue_.sync([&] { return value; }), 1);
  releaser.join();
}

TEST_F(SerialQueueTest, SyncReturnsMoveOnlyValues) {
  EXPECT_EQ(*queue_.sync([] { return std::make_unique<int>(7); }), 7);
}

TEST_F(SerialQueueTest, RunsOneTaskAtATimeWhoeverCalls) {
  int unguarded = 0;
  std::vector<std::thread> callers;
  callers.reserve(8);
  for (int caller = 0; caller < 8; ++caller) {
    callers.emplace_back([&] {
      for (int i = 0; i < 500; ++i) {
        queue_.sync([&] { ++unguarded; });
        queue_.async([&] { ++unguarded; });
      }
    });
  }
  for (auto& caller : callers) caller.join();
  EXPECT_EQ(queue_.sync([&] { return unguarded; }), 8000);
}

TEST_F(SerialQueueTest, AfterRunsOnTheQueueWhenItsTimeHasCome) {
  std::atomic<bool> ran = false;
  queue_.after(600ms, [&] { ran = queue_.isCurrent(); });
  clock_.advance(599ms, [&] { queue_.sync([] {}); });
  EXPECT_FALSE(ran);
  clock_.advance(1ms, [&] { queue_.sync([] {}); });
  EXPECT_TRUE(ran);
}

TEST_F(SerialQueueTest, KnowsWhetherTheCallerRunsOnIt) {
  EXPECT_FALSE(queue_.isCurrent());
  EXPECT_TRUE(queue_.sync([&] { return queue_.isCurrent(); }));
  SerialQueue other("other", pool_, clock_);
  EXPECT_TRUE(queue_.sync([&] { return other.sync([&] { return queue_.isCurrent(); }); }));
}

TEST_F(SerialQueueTest, PendingTasksRunEvenIfTheQueueIsDestroyed) {
  std::latch ran(100);
  {
    SerialQueue shortLived("short-lived", pool_, clock_);
    for (int i = 0; i < 100; ++i) shortLived.async([&] { ran.count_down(); });
  }
  ran.wait();
}

#ifndef NDEBUG
TEST_F(SerialQueueTest, SyncFromTheQueueItselfAsserts) {
  ::testing::GTEST_FLAG(death_test_style) = "threadsafe";
  EXPECT_DEATH(queue_.sync([&] { queue_.sync([] {}); }), "sync from the queue itself");
}
#endif

}  // namespace
}  // namespace zephyl
