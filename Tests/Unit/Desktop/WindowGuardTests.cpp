#include "Helpers/Dialogs/Program/WindowGuard.hpp"

#include <gtest/gtest.h>

namespace zephyl {
namespace {

using namespace std::chrono_literals;
using Policy = WindowGuard::Policy;

const Instant start{1000s};

/// A window that is exposed and active at `start`.
WindowGuard activeWindow(Policy policy) {
  WindowGuard guard(policy);
  guard.exposed(start);
  guard.activationChanged(true, start);
  return guard;
}

TEST(WindowGuard, NoWindowAcceptsInputBeforeItIsOnScreen) {
  for (const auto policy : {Policy::never, Policy::afterReturning, Policy::always}) {
    WindowGuard guard(policy);
    guard.activationChanged(true, start);
    EXPECT_FALSE(guard.accepts());
    EXPECT_FALSE(guard.isOpen(start + 1h));
    EXPECT_EQ(guard.dueAt(), std::nullopt);
  }
}

TEST(WindowGuard, AWindowWithoutShieldAcceptsInputAtOnce) {
  WindowGuard guard(Policy::never);
  guard.exposed(start);
  EXPECT_TRUE(guard.accepts());
  EXPECT_TRUE(guard.isOpen(start));
  EXPECT_EQ(guard.dueAt(), std::nullopt);

  guard.activationChanged(false, start);
  EXPECT_TRUE(guard.accepts());
}

TEST(WindowGuard, AShieldedWindowAcceptsInputAfterASecond) {
  auto guard = activeWindow(Policy::always);
  EXPECT_FALSE(guard.accepts());
  EXPECT_FALSE(guard.isOpen(start + 999ms));
  EXPECT_EQ(guard.dueAt(), start + 1s);

  guard.due(start + 1s);
  EXPECT_TRUE(guard.accepts());
  EXPECT_TRUE(guard.isOpen(start + 1s));
  EXPECT_EQ(guard.dueAt(), std::nullopt);
}

TEST(WindowGuard, ATimerThatFiresEarlyOpensNothing) {
  auto guard = activeWindow(Policy::always);
  guard.due(start + 999ms);
  EXPECT_FALSE(guard.accepts());
  EXPECT_EQ(guard.dueAt(), start + 1s);
}

TEST(WindowGuard, StaysClosedWhileSomebodyTypes) {
  auto guard = activeWindow(Policy::always);
  guard.keyIgnored(start + 900ms);
  EXPECT_EQ(guard.dueAt(), start + 1400ms);
  guard.due(start + 1s);
  EXPECT_FALSE(guard.accepts());
  guard.due(start + 1400ms);
  EXPECT_TRUE(guard.accepts());
}

TEST(WindowGuard, AKeyThatArrivesBeforeALateTimerPostponesTheOpening) {
  auto guard = activeWindow(Policy::always);
  guard.keyIgnored(start + 1050ms);
  EXPECT_FALSE(guard.accepts());
  EXPECT_EQ(guard.dueAt(), start + 1550ms);
}

TEST(WindowGuard, AProgramThatWasHeldUpStaysClosed) {
  auto punctual = activeWindow(Policy::always);
  punctual.due(start + 1100ms);
  EXPECT_TRUE(punctual.accepts());

  auto late = activeWindow(Policy::always);
  late.due(start + 1101ms);
  EXPECT_FALSE(late.accepts());
  EXPECT_EQ(late.dueAt(), start + 1601ms);
}

TEST(WindowGuard, AShieldedWindowThatIsNotActiveIgnoresInput) {
  WindowGuard guard(Policy::always);
  guard.exposed(start);
  guard.due(start + 1s);
  EXPECT_FALSE(guard.accepts());
  EXPECT_FALSE(guard.isActive());
  EXPECT_TRUE(guard.isOpen(start + 1s)) << "it may be closed";

  guard.activationChanged(true, start + 10s);
  EXPECT_FALSE(guard.accepts());
  EXPECT_TRUE(guard.isActive());
  EXPECT_EQ(guard.dueAt(), start + 11s);
  guard.due(start + 11s);
  EXPECT_TRUE(guard.accepts());
}

TEST(WindowGuard, ClosesAgainWhenTheWindowReturns) {
  auto guard = activeWindow(Policy::always);
  guard.due(start + 1s);
  guard.activationChanged(false, start + 5s);
  EXPECT_FALSE(guard.accepts());
  guard.activationChanged(true, start + 9s);
  EXPECT_FALSE(guard.accepts());
  guard.due(start + 10s);
  EXPECT_TRUE(guard.accepts());
}

TEST(WindowGuard, ARequestedWindowIsShieldedWhenItReturns) {
  auto guard = activeWindow(Policy::afterReturning);
  EXPECT_TRUE(guard.accepts());
  guard.activationChanged(true, start + 1s);
  EXPECT_TRUE(guard.accepts()) << "it has not been inactive";

  guard.activationChanged(false, start + 2s);
  EXPECT_FALSE(guard.accepts());
  guard.activationChanged(true, start + 3s);
  EXPECT_FALSE(guard.accepts());
  guard.due(start + 4s);
  EXPECT_TRUE(guard.accepts());
}

}  // namespace
}  // namespace zephyl
