#include "Desktop/Freedesktop/ActivationTokens.hpp"

#include <gtest/gtest.h>

#include "Support/ManualClock.hpp"

namespace zephyl {
namespace {

using namespace std::chrono_literals;

class ActivationTokensTest : public ::testing::Test {
 protected:
  test::ManualClock clock_;
  ActivationTokens tokens_{clock_, "start"};
};

TEST_F(ActivationTokensTest, TheTokenOfTheStartIsAvailableOnce) {
  EXPECT_EQ(tokens_.consume(), "start");
  EXPECT_EQ(tokens_.consume(), "");
}

TEST_F(ActivationTokensTest, ATokenIsAvailableOnceWhileItsActionIsHandled) {
  tokens_.handle("one", [&] {
    EXPECT_EQ(tokens_.consume(), "one");
    EXPECT_EQ(tokens_.consume(), "");
  });
}

TEST_F(ActivationTokensTest, AnUnusedTokenIsDroppedWithItsAction) {
  tokens_.handle("one", [] {});
  EXPECT_EQ(tokens_.consume(), "");
}

TEST_F(ActivationTokensTest, AnActionWithoutATokenGetsNoOther) {
  tokens_.provide("one");
  tokens_.handle("", [&] { EXPECT_EQ(tokens_.consume(), ""); });
}

TEST_F(ActivationTokensTest, AProvidedTokenIsNotAvailableBeforeItsAction) {
  ActivationTokens tokens(clock_, "");
  tokens.provide("one");
  EXPECT_EQ(tokens.consume(), "");
}

TEST_F(ActivationTokensTest, AProvidedTokenBelongsToOneAction) {
  tokens_.provide("old");
  tokens_.provide("new");
  EXPECT_EQ(tokens_.consumeProvided(), "new");
  EXPECT_EQ(tokens_.consumeProvided(), "");
}

TEST_F(ActivationTokensTest, AProvidedTokenExpires) {
  tokens_.provide("one");
  clock_.advance(ActivationTokens::lifetime - 1ms);
  EXPECT_EQ(tokens_.consumeProvided(), "one");
  tokens_.provide("two");
  clock_.advance(ActivationTokens::lifetime);
  EXPECT_EQ(tokens_.consumeProvided(), "");
}

}  // namespace
}  // namespace zephyl
