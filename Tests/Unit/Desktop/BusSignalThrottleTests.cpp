#include "Desktop/Freedesktop/Menu/BusSignalThrottle.hpp"

#include <gtest/gtest.h>

#include "Support/ManualClock.hpp"

namespace zephyl {
namespace {

using namespace std::chrono_literals;

class BusSignalThrottleTest : public ::testing::Test {
 protected:
  /// Adds a source that sends `count` signals under its name each time.
  std::size_t source(char name, std::size_t count = 1, Duration interval = {}) {
    return throttle_.add({.maxSignals = count, .interval = interval, .send = [this, name, count] {
                            for (std::size_t i = 0; i < count; ++i) {
                              sent_ += name;
                              times_.push_back(clock_.now());
                            }
                            return count;
                          }});
  }
  std::size_t mostInAnyWindow() const {
    std::size_t most = 0;
    for (const auto start : times_) {
      most = std::max(most, static_cast<std::size_t>(
                                std::count_if(times_.begin(), times_.end(), [&](Instant time) {
                                  return time >= start && time < start + BusSignalThrottle::window;
                                })));
    }
    return most;
  }

  test::ManualClock clock_;
  BusSignalThrottle throttle_{
      clock_, [this](Duration delay, Task task) { return clock_.after(delay, std::move(task)); }};
  std::string sent_;
  std::vector<Instant> times_;
};

TEST_F(BusSignalThrottleTest, AQuietSourceSendsAtOnce) {
  throttle_.request(source('a'));
  EXPECT_EQ(sent_, "a");
  EXPECT_EQ(clock_.pendingTimers(), 0U);
}

TEST_F(BusSignalThrottleTest, AnUrgentSignalIsSentAtOnceAndCounted) {
  const auto a = source('a');
  const auto b = source('b');
  for (int i = 0; i < 4; ++i) throttle_.request(a);
  throttle_.sendNow(b);
  EXPECT_EQ(sent_, "aaaab");
  throttle_.request(a);
  EXPECT_EQ(sent_, "aaaab");
  clock_.advance(1s);
  EXPECT_EQ(sent_, "aaaaba");
}

TEST_F(BusSignalThrottleTest, AFloodIsLimitedToFourASecond) {
  const auto a = source('a');
  const auto b = source('b', 2);
  for (int i = 0; i < 10'000; ++i) {
    throttle_.request(a);
    throttle_.request(b);
    clock_.advance(1ms);
  }
  EXPECT_LE(mostInAnyWindow(), BusSignalThrottle::perWindow);
  EXPECT_GE(sent_.size(), 36U);  // and uses its limit
  EXPECT_NEAR(static_cast<double>(std::count(sent_.begin(), sent_.end(), 'a')), 20, 2);
}

TEST_F(BusSignalThrottleTest, TheLastStateIsSent) {
  const auto a = source('a');
  for (int i = 0; i < 6; ++i) throttle_.request(a);
  EXPECT_EQ(sent_, "aaaa");
  clock_.advance(1s);
  EXPECT_EQ(sent_, "aaaaa");
  clock_.advance(10s);
  EXPECT_EQ(sent_, "aaaaa");
  EXPECT_EQ(clock_.pendingTimers(), 0U);
}

TEST_F(BusSignalThrottleTest, ASourceWithAnIntervalWaitsAloneForIt) {
  const auto a = source('a', 1, 250ms);
  const auto b = source('b');
  throttle_.request(a);
  throttle_.request(a);
  throttle_.request(b);
  EXPECT_EQ(sent_, "ab");
  clock_.advance(249ms);
  EXPECT_EQ(sent_, "ab");
  clock_.advance(1ms);
  EXPECT_EQ(sent_, "aba");
}

TEST_F(BusSignalThrottleTest, ASourceWithoutASignalConsumesNoBudget) {
  int asked = 0;
  const auto silent = throttle_.add({.interval = 1h, .send = [&asked] {
                                       ++asked;
                                       return std::size_t{0};
                                     }});
  for (int i = 0; i < 10; ++i) throttle_.request(silent);
  EXPECT_EQ(asked, 10);
}

}  // namespace
}  // namespace zephyl
