#include "System/Concurrency/SystemClock.hpp"

#include <atomic>
#include <future>

#include <gtest/gtest.h>

#include "Support/Eventually.hpp"
#include "System/Concurrency/Reactor.hpp"

namespace zephyl {
namespace {

using namespace std::chrono_literals;

class SystemClockTest : public ::testing::Test {
 protected:
  Reactor reactor_;
  SystemClock clock_{reactor_};
};

TEST_F(SystemClockTest, FiresOnTheReactorNotBeforeItsTime) {
  std::promise<Instant> fired;
  const Instant set = clock_.now();
  const Timer timer = clock_.after(20ms, [&] {
    EXPECT_TRUE(reactor_.isCurrent());
    fired.set_value(clock_.now());
  });
  EXPECT_GE(fired.get_future().get() - set, 20ms);
}

TEST_F(SystemClockTest, ACancelledTimerNeverFires) {
  std::atomic<bool> fired = false;
  Timer timer = clock_.after(1ms, [&] { fired = true; });
  timer.cancel();
  std::promise<void> later;
  const Timer witness = clock_.after(20ms, [&] { later.set_value(); });
  later.get_future().wait();
  EXPECT_FALSE(fired);
}

TEST_F(SystemClockTest, RepeatsUntilItsHandleIsDestroyed) {
  std::atomic<int> ticks = 0;
  {
    const Timer timer = clock_.every(1ms, [&] { ++ticks; });
    EXPECT_TRUE(test::eventually([&] { return ticks >= 5; }));
  }
  reactor_.run([] {});
  const int stoppedAt = ticks;
  std::promise<void> later;
  const Timer witness = clock_.after(20ms, [&] { later.set_value(); });
  later.get_future().wait();
  EXPECT_EQ(ticks, stoppedAt);
}

TEST_F(SystemClockTest, ADetachedTimerNeedsNoHandle) {
  std::promise<void> fired;
  clock_.afterDetached(1ms, [&] { fired.set_value(); });
  fired.get_future().wait();
}

TEST_F(SystemClockTest, ATimerMayBeCancelledFromItsOwnTask) {
  Timer timer;
  std::promise<void> fired;
  reactor_.run([&] {
    timer = clock_.every(1ms, [&] {
      timer.cancel();
      fired.set_value();
    });
  });
  fired.get_future().wait();
}

TEST(Reactor, RunsWorkOnItsThreadAndWaitsForIt) {
  Reactor reactor;
  bool onReactor = false;
  reactor.run([&] { onReactor = reactor.isCurrent(); });
  EXPECT_TRUE(onReactor);
  EXPECT_FALSE(reactor.isCurrent());
}

}  // namespace
}  // namespace zephyl
