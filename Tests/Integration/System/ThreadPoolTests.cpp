#include "System/Concurrency/ThreadPool.hpp"

#include <atomic>
#include <latch>

#include <gtest/gtest.h>

#include <sys/resource.h>

#include "Support/Eventually.hpp"
#include "Support/HomelessUser.hpp"
#include "Support/LogCapture.hpp"

namespace zephyl {
namespace {

TEST(ThreadPool, KeepsOneThreadForLife) {
  ThreadPool pool;
  EXPECT_EQ(pool.threadCount(), 1U);
  std::latch release(1);
  for (int i = 0; i < 3; ++i) pool.submit([&] { release.wait(); });
  EXPECT_GT(pool.threadCount(), 1U);
  release.count_down();
  EXPECT_TRUE(test::eventually([&] { return pool.threadCount() == 1; }));
}

/// Returns whether all tasks run, after one log line, if the system cannot create threads. Changes
/// the limits of the process.
bool worksWithoutFurtherThreads() {
  ThreadPool pool;
  const rlimit none{0, 0};
  if (::setrlimit(RLIMIT_NPROC, &none) != 0) return false;
  std::atomic<int> ran = 0;
  const auto log = test::logOf([&] {
    for (int i = 0; i < 100; ++i) pool.submit([&] { ++ran; });
    pool.waitUntilIdle();
  });
  return ran == 100 && pool.threadCount() == 1 &&
         log == "[tray] could not start another thread: continuing with fewer\n";
}

TEST(ThreadPool, RunsTasksIfTheSystemHasNoFreeThread) {
  const auto held = test::holdsWithoutHome(worksWithoutFurtherThreads);
  if (!held) GTEST_SKIP() << "needs root, to become a user whom limits hold for";
  EXPECT_TRUE(*held);
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

TEST(ThreadPool, FinishesSubmittedTasksBeforeItsEnd) {
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
    std::latch release(1);
    for (int i = 0; i < 2; ++i) pool.submit([&] { release.wait(); });
    EXPECT_GE(pool.threadCount(), 2U);
    release.count_down();
    ASSERT_TRUE(test::eventually([&] { return pool.threadCount() == 1; }));
  }
}

}  // namespace
}  // namespace zephyl
