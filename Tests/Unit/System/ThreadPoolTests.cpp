#include "System/ThreadPool.hpp"

#include <atomic>
#include <latch>

#include <gtest/gtest.h>

#include "Support/Eventually.hpp"

namespace zephyl {
namespace {

TEST(ThreadPool, HasNoThreadBeforeThereIsWorkAndNoneLongAfter) {
  ThreadPool pool;
  EXPECT_EQ(pool.threadCount(), 0U);
  std::latch ran(1);
  pool.submit([&] { ran.count_down(); });
  ran.wait();
  EXPECT_LE(pool.threadCount(), 1U);
  EXPECT_TRUE(test::eventually([&] { return pool.threadCount() == 0; }));
}

TEST(ThreadPool, GrowsWhileTasksBlockButNotBeyondItsLimit) {
  ThreadPool pool;
  std::latch release(1);
  std::atomic<std::size_t> running = 0;
  for (std::size_t i = 0; i < 2 * ThreadPool::maxThreads; ++i) {
    pool.submit([&] {
      ++running;
      release.wait();
    });
  }
  EXPECT_TRUE(test::eventually([&] { return running == ThreadPool::maxThreads; }));
  EXPECT_EQ(pool.threadCount(), ThreadPool::maxThreads);
  release.count_down();
  EXPECT_TRUE(test::eventually([&] { return running == 2 * ThreadPool::maxThreads; }));
}

TEST(ThreadPool, FinishesWhatWasSubmittedBeforeItGoes) {
  std::atomic<int> ran = 0;
  {
    ThreadPool pool;
    for (int i = 0; i < 1000; ++i) pool.submit([&] { ++ran; });
  }
  EXPECT_EQ(ran, 1000);
}

TEST(ThreadPool, StartsThreadsAgainAfterTheyEnded) {
  ThreadPool pool;
  for (int round = 0; round < 3; ++round) {
    std::latch ran(1);
    pool.submit([&] { ran.count_down(); });
    ran.wait();
    ASSERT_TRUE(test::eventually([&] { return pool.threadCount() == 0; }));
  }
}

}  // namespace
}  // namespace zephyl
