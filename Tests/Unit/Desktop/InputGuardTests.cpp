#include "Desktop/InputGuard.hpp"

#include <gtest/gtest.h>

namespace zephyl {
namespace {

using namespace std::chrono_literals;

const Instant start{1000s};

TEST(InputGuard, IsClosedBeforeTheWindowAppears) {
  EXPECT_FALSE(InputGuard().isOpen(start));
}

TEST(InputGuard, OpensAfterASecondWithoutKeys) {
  InputGuard guard;
  guard.restart(start);
  EXPECT_FALSE(guard.isOpen(start + 999ms));
  EXPECT_EQ(guard.remaining(start + 400ms), 600ms);
  EXPECT_TRUE(guard.isOpen(start + 1s));
}

TEST(InputGuard, StaysClosedWhileSomebodyTypes) {
  InputGuard guard;
  guard.restart(start);
  Instant now = start;
  for (int key = 0; key < 20; ++key) {
    EXPECT_FALSE(guard.isOpen(now));
    guard.postpone(now);
    now += 499ms;
  }
  EXPECT_FALSE(guard.isOpen(now));
  EXPECT_TRUE(guard.isOpen(now + 1ms));
}

TEST(InputGuard, AKeyAtTheBeginningDoesNotShortenTheSecond) {
  InputGuard guard;
  guard.restart(start);
  guard.postpone(start + 1ms);
  EXPECT_FALSE(guard.isOpen(start + 999ms));
  EXPECT_TRUE(guard.isOpen(start + 1s));
}

TEST(InputGuard, ClosesWhenTheWindowBecomesActiveAgain) {
  InputGuard guard;
  guard.restart(start);
  guard.restart(start + 60s);
  EXPECT_FALSE(guard.isOpen(start + 60s));
  EXPECT_TRUE(guard.isOpen(start + 61s));
}

TEST(InputGuard, IsPostponedAlsoWhenItIsDueToOpen) {
  InputGuard guard;
  guard.restart(start);
  guard.postpone(start + 2s);
  EXPECT_FALSE(guard.isOpen(start + 2499ms));
  EXPECT_TRUE(guard.isOpen(start + 2500ms));
}

}  // namespace
}  // namespace zephyl
