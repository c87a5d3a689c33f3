#include "ZephylTray/Tailnet/TailnetOutput.hpp"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ZephylTray/Tailnet/PreauthKey.hpp"
#include "ZephylTray/Tailnet/PublishedTailnet.hpp"

namespace zephyl {
namespace {

/// The output of a pair without children.
class TailnetOutputTest : public ::testing::Test {
 protected:
  void print(std::vector<std::string> lines) {
    output_.handle(&pair_, OutputLines(std::move(lines), nullptr), "tailnet");
  }

  PublishedTailnet published_;
  PreauthKey key_;
  TailnetPair pair_;
  int discovered_ = 0;
  int failedEnrolments_ = 0;
  TailnetOutput output_{published_,
                        key_,
                        {.discovered = [this] { ++discovered_; },
                         .enrolmentFailed = [this] { ++failedEnrolments_; }}};
};

TEST_F(TailnetOutputTest, IsLoggedUnderItsTagWithoutTheKey) {
  key_.store("kq7v-secret");
  print({"one", "given kq7v-secret"});
  EXPECT_EQ(published_.recentLog(),
            (std::vector<std::string>{"[tailnet] one", "[tailnet] given [redacted]"}));
}

TEST_F(TailnetOutputTest, ATunnelClearsFailures) {
  published_.change([](TailnetState& state) {
    state.failureCount = 7;
    state.stalledReason = "stalled";
  });
  print({"data tunnel on http://127.100.0.3:80", "verified control plane via relay-1"});
  EXPECT_EQ(published_.state(),
            (TailnetState{.boundAddress = "127.100.0.3:80", .activeRelay = "relay-1"}));
}

TEST_F(TailnetOutputTest, DiscoveriesAreReportedOnceUntilTheyAreExtracted) {
  print({"server name: Old", "server name: Lab", "server accent: #00ff00"});
  EXPECT_EQ(discovered_, 1);
  const auto found = output_.extractDiscoveries();
  EXPECT_EQ(found.name, "Lab");
  EXPECT_EQ(found.accent, "#00ff00");
  EXPECT_EQ(found.address, std::nullopt);
  print({"target resolved to http://lab"});
  EXPECT_EQ(discovered_, 2);
  EXPECT_EQ(output_.extractDiscoveries().address, "http://lab");
  EXPECT_EQ(output_.extractDiscoveries().address, std::nullopt);
}

TEST_F(TailnetOutputTest, ABlankValueDoesNotReplaceOneThatWaits) {
  print({"server name: Lab", "server name:  ", "server accent: #00ff00", "server accent:  \t",
         "target resolved to http://lab", "target resolved to  "});
  const auto found = output_.extractDiscoveries();
  EXPECT_EQ(found.name, "Lab");
  EXPECT_EQ(found.accent, "#00ff00");
  EXPECT_EQ(found.address, "http://lab");
}

TEST_F(TailnetOutputTest, AnUnresolvedTargetIsPublishedUntilItIsResolved) {
  print({"TARGET UNRESOLVED: http://lab"});
  EXPECT_EQ(published_.state().unresolvedTarget, "http://lab");
  EXPECT_EQ(output_.extractDiscoveries().unresolvedTarget, "http://lab");
  print({"target resolved to http://lab"});
  EXPECT_EQ(published_.state().unresolvedTarget, std::nullopt);
}

TEST_F(TailnetOutputTest, AFailedEnrolmentIsPublishedUntilAJoinSucceeds) {
  print({"ENROLMENT FAILED: key expired"});
  EXPECT_EQ(published_.state().lastEnrolError, "key expired");
  EXPECT_EQ(failedEnrolments_, 1);
  print({"joined the tailnet"});
  EXPECT_EQ(published_.state().lastEnrolError, std::nullopt);
}

TEST_F(TailnetOutputTest, OfAPairThatEndsOnlyAJoinWithTheNewestKeyCounts) {
  key_.store("hskey-auth-first");
  pair_.setKeyNumber(key_.number());
  pair_.markEnded();
  print({"joined the tailnet", "server name: Lab", "ENROLMENT FAILED: no"});
  EXPECT_EQ(key_.stored(), std::nullopt);
  EXPECT_EQ(discovered_ + failedEnrolments_, 0);
  EXPECT_EQ(published_.state(), TailnetState());
  key_.store("hskey-auth-second");
  print({"joined the tailnet"});
  EXPECT_NE(key_.stored(), std::nullopt);
}

TEST_F(TailnetOutputTest, OfAForgottenPairIsOnlyLogged) {
  output_.handle(nullptr, OutputLines({"data tunnel on 127.100.0.3:80"}, nullptr), "tailnet");
  EXPECT_EQ(published_.recentLog().size(), 1U);
  EXPECT_EQ(published_.state(), TailnetState());
}

}  // namespace
}  // namespace zephyl
