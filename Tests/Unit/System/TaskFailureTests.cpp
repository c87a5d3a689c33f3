#include "System/Concurrency/TaskFailure.hpp"

#include <atomic>
#include <new>
#include <stdexcept>

#include <gtest/gtest.h>

#include "Support/LogCapture.hpp"
#include "System/Concurrency/MainLoop.hpp"
#include "System/Concurrency/Reactor.hpp"
#include "System/Concurrency/SerialQueue.hpp"
#include "System/Concurrency/SystemClock.hpp"
#include "System/Concurrency/ThreadPool.hpp"

namespace zephyl {
namespace {

[[noreturn]] void fail() {
  throw std::runtime_error("no luck");
}

/// Threads whose tasks throw.
class TaskFailureTest : public ::testing::Test {
 protected:
  TaskFailureTest() {
    taskFailure::setHandler([this] {
      ++failures_;
      mainLoop_.quit();
    });
  }
  ~TaskFailureTest() override { taskFailure::setHandler(nullptr); }
  TaskFailureTest(const TaskFailureTest&) = delete;
  TaskFailureTest& operator=(const TaskFailureTest&) = delete;

  static std::string lineOf(const std::string& thread) {
    return "[tray] a task of the thread \"" + thread + "\" failed: no luck\n";
  }

  std::atomic<int> failures_ = 0;
  MainLoop mainLoop_;
  ThreadPool pool_;
  Reactor reactor_;
  SystemClock clock_{reactor_};
};

TEST_F(TaskFailureTest, OnTheMainThreadIsLoggedAndEndsTheLoopInOrder) {
  mainLoop_.async(fail);
  EXPECT_EQ(test::logOf([&] { mainLoop_.run(); }), lineOf("main"));
  EXPECT_EQ(failures_, 1);
}

TEST_F(TaskFailureTest, OnTheReactorLeavesItRunning) {
  const auto log = test::logOf([&] {
    reactor_.post(fail);
    mainLoop_.run();
  });
  EXPECT_EQ(log, lineOf("io"));
  bool ran = false;
  reactor_.run([&] { ran = true; });
  EXPECT_TRUE(ran);
  EXPECT_EQ(failures_, 1);
}

TEST_F(TaskFailureTest, OfASyncTaskIsRethrownToItsCaller) {
  EXPECT_THROW(reactor_.run(fail), std::runtime_error);
  SerialQueue queue("queue", pool_, clock_);
  EXPECT_THROW(queue.sync([] { fail(); }), std::runtime_error);
  EXPECT_EQ(queue.sync([] { return 1; }), 1);
  EXPECT_EQ(failures_, 0);
}

TEST_F(TaskFailureTest, OfAQueuesTaskLeavesTheQueueRunning) {
  SerialQueue queue("com.zephyl.test", pool_, clock_);
  const auto log = test::logOf([&] {
    queue.async(fail);
    mainLoop_.run();
  });
  EXPECT_EQ(log, lineOf("com.zephyl.test"));
  EXPECT_EQ(queue.sync([] { return 1; }), 1);
}

TEST_F(TaskFailureTest, OfATaskOfAnyTypeIsLogged) {
  const auto log = test::logOf([] {
    taskFailure::guard("a", [] { throw 1; });
    taskFailure::guard("b", [] { throw std::bad_alloc(); });
  });
  EXPECT_EQ(log,
            "[tray] a task of the thread \"a\" failed: unknown exception\n"
            "[tray] a task of the thread \"b\" failed: std::bad_alloc\n");
  EXPECT_EQ(failures_, 2);
}

TEST_F(TaskFailureTest, OfAVisitToTheMainThreadReleasesTheVisitor) {
  const auto log = test::logOf([&] {
    pool_.submit([this] {
      EXPECT_FALSE(mainLoop_.sync(fail));
      mainLoop_.quit();
    });
    mainLoop_.run();
    pool_.waitUntilIdle();
  });
  EXPECT_EQ(log, lineOf("main"));
}

}  // namespace
}  // namespace zephyl
