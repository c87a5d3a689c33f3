#include "Support/LogCapture.hpp"
#include "System/Files/Files.hpp"
#include "TailnetProcessTest.hpp"

namespace zephyl {
namespace {

using namespace std::chrono_literals;

// Enrolling

TEST_F(TailnetProcessTest, TheKeyIsPassedUntilTheJoinSucceeds) {
  tailnet_->startRedeeming("hskey-auth-abc");
  advance(800ms + 1s);
  EXPECT_EQ(client().options().environment.at("ZEPHYL_PREAUTH_KEY"), "hskey-auth-abc");
  tailnet_->restart();
  advance(800ms + 1s);
  EXPECT_EQ(client().options().environment.at("ZEPHYL_PREAUTH_KEY"), "hskey-auth-abc");
  print("joined the tailnet");
  tailnet_->restart();
  advance(800ms + 1s);
  EXPECT_FALSE(client().options().environment.contains("ZEPHYL_PREAUTH_KEY"));
}

TEST_F(TailnetProcessTest, AJoinReportedWhileThePairEndsClearsTheKey) {
  tailnet_->startRedeeming("hskey-auth-abc");
  advance(800ms + 1s);
  client().ignoreTermination();
  tailnet_->restart();
  settle();
  client().print({"joined the tailnet", "server name: Lab"});
  advance(3s + 800ms + 1s);
  ASSERT_EQ(launches(), 4U);
  EXPECT_FALSE(client().options().environment.contains("ZEPHYL_PREAUTH_KEY"));
  EXPECT_EQ(Servers::all()[0].serverName, std::nullopt);
}

TEST_F(TailnetProcessTest, AJoinWithAnEarlierKeyDoesNotClearTheNewOne) {
  tailnet_->startRedeeming("hskey-auth-old");
  advance(800ms + 1s);
  client().ignoreTermination();
  tailnet_->startRedeeming("hskey-auth-new");
  settle();
  client().print({"joined the tailnet"});
  advance(3s + 800ms + 1s);
  EXPECT_EQ(client().options().environment.at("ZEPHYL_PREAUTH_KEY"), "hskey-auth-new");
}

TEST_F(TailnetProcessTest, AFailedEnrolmentStopsBothForGood) {
  tailnet_->startRedeeming("hskey-auth-expired");
  advance(2s);
  print("ENROLMENT FAILED: key expired");
  EXPECT_FALSE(tailnet_->isRunning());
  EXPECT_EQ(tailnet_->state().lastEnrolError, "key expired");
  advance(600s);
  EXPECT_EQ(launches(), 2U);
  EXPECT_EQ(tailnet_->state().failureCount, 0);
  tailnet_->startRedeeming("hskey-auth-good");
  advance(2s);
  print("joined the tailnet");
  EXPECT_EQ(tailnet_->state().lastEnrolError, std::nullopt);
}

TEST_F(TailnetProcessTest, AKeyPrintedByTheChildrenIsRemovedFromTheLog) {
  const std::string secret = "kq7v-good-and-secret";
  tailnet_->startRedeeming("hskey-auth-" + secret);
  const std::string log = test::logOf([&] {
    advance(2s);
    child(0).print({"given hskey-auth-" + secret + "; twice " + secret});
    print("server name: hskey-auth-" + secret);
    print("verified control plane via " + secret);
    print("TARGET UNRESOLVED: http://" + secret);
    print("ENROLMENT FAILED: " + secret + " expired");
  });
  EXPECT_EQ(tailnet_->recentLog().front(), "[tailscaled] given [redacted]; twice [redacted]");
  EXPECT_EQ(tailnet_->state().lastEnrolError, "[redacted] expired");
  EXPECT_EQ(Servers::all()[0].serverName, "[redacted]");
  EXPECT_EQ(targets_, std::vector<std::string>{"http://[redacted]"});
  auto everything = tailnet_->recentLog();
  everything.push_back(log);
  everything.push_back(readFile(Servers::baseDir() + "/servers.json").value());
  for (const auto& text : everything) EXPECT_EQ(text.find(secret), std::string::npos) << text;
}

TEST_F(TailnetProcessTest, AShortKeyIsNotRemovedFromOrdinaryWords) {
  tailnet_->startRedeeming("tail");
  advance(2s);
  print("joined the tailnet");
  EXPECT_EQ(lastLine(), "[tailnet] joined the tailnet");
}

TEST_F(TailnetProcessTest, OutputOfAStoppedPairIsOnlyLogged) {
  startBoth();
  const auto old = runtime_.launcher.newest();
  tailnet_->startRedeeming("hskey-auth-abc");
  old->print(
      {"data tunnel on http://127.100.0.3:80", "joined the tailnet", "ENROLMENT FAILED: no"});
  advance(2s);
  EXPECT_EQ(tailnet_->recentLog().back(), "[tailnet] ENROLMENT FAILED: no");
  EXPECT_EQ(tailnet_->state(), TailnetState{});
  EXPECT_TRUE(tailnet_->isRunning());
  EXPECT_EQ(client().options().environment.at("ZEPHYL_PREAUTH_KEY"), "hskey-auth-abc");
}

// Reading the output

TEST_F(TailnetProcessTest, KeepsTheNewest200LinesUnderTheirTags) {
  startBoth();
  for (int i = 1; i <= 250; ++i) client().print({std::to_string(i)});
  settle();
  const auto log = tailnet_->recentLog();
  ASSERT_EQ(log.size(), TailnetProcess::maxLogLines);
  EXPECT_EQ(log.front(), "[tailnet] 51");
  child(0).print({"up"});
  settle();
  EXPECT_EQ(lastLine(), "[tailscaled] up");
}

TEST_F(TailnetProcessTest, LearnsTheNameAndColorOfTheServer) {
  startBoth();
  print("target resolved to http://lab:5173");
  print("server name: The Lab");
  print("server accent: #00ff00");
  const auto server = Servers::all()[0];
  EXPECT_EQ(server.address, "http://lab:5173");
  EXPECT_EQ(server.serverName, "The Lab");
  EXPECT_EQ(server.serverAccent, "#00ff00");
  EXPECT_EQ(addressesLearned_, 1);
  print("target resolved to http://lab:5173");
  EXPECT_EQ(addressesLearned_, 1);
}

TEST_F(TailnetProcessTest, OnlyTheNewestValueWaitsForTheMainThread) {
  startBoth();
  stateChanges_ = 0;
  for (int i = 1; i <= 5000; ++i) {
    client().print({"server name: Lab " + std::to_string(i),
                    "TARGET UNRESOLVED: http://" + std::to_string(i)});
  }
  runtime_.pool.waitUntilIdle();
  settle();
  EXPECT_EQ(Servers::all()[0].serverName, "Lab 5000");
  EXPECT_EQ(targets_, std::vector<std::string>{"http://5000"});
  EXPECT_EQ(stateChanges_, 1);
}

TEST_F(TailnetProcessTest, OneLineWithTwoMarkersHasBothEffects) {
  startBoth();
  print("verified control plane via relay-1, server name: Lab");
  EXPECT_EQ(tailnet_->state().activeRelay, "relay-1, server name: Lab");
  EXPECT_EQ(Servers::all()[0].serverName, "Lab");
}

TEST_F(TailnetProcessTest, MarkersAreFoundBeyondTheLengthOfALogLine) {
  startBoth();
  print("found Zephyl at relay-1, server name: Lab");
  EXPECT_EQ(lastLine(), "[tailnet] found Zephyl");
  EXPECT_EQ(Servers::all()[0].serverName, "Lab");
}

TEST_F(TailnetProcessTest, ReportsAnAddressAfterItWasStoredAndThenTheState) {
  startBoth();
  std::vector<std::string> calls;
  tailnet_->onAddressLearned = [&] { calls.push_back(*Servers::all()[0].address); };
  tailnet_->onTargetUnresolved = [&](const std::string& target) { calls.push_back(target); };
  tailnet_->onStateChange = [&] { calls.emplace_back("state"); };
  print("target resolved to http://lab");
  print("TARGET UNRESOLVED: http://other");
  print("verified control plane via relay-1");
  EXPECT_EQ(calls, (std::vector<std::string>{"http://lab", "state", "http://other", "state"}));
}

TEST_F(TailnetProcessTest, ReportsATargetThatCannotBeResolved) {
  startBoth();
  stateChanges_ = 0;
  print("TARGET UNRESOLVED: http://lab");
  EXPECT_EQ(targets_, std::vector<std::string>{"http://lab"});
  EXPECT_EQ(stateChanges_, 1);
  print("target resolved to http://lab");
  EXPECT_EQ(tailnet_->state().unresolvedTarget, std::nullopt);
}

}  // namespace
}  // namespace zephyl
