#include "ZephylTray/Agent/ActivityStream.hpp"

#include <atomic>

#include <gtest/gtest.h>

#include <unistd.h>

#include "Support/FakeAgent.hpp"
#include "Support/TestRuntime.hpp"

namespace zephyl {
namespace {

using namespace std::chrono_literals;

class ActivityStreamTest : public ::testing::Test {
 protected:
  void follow() {
    stream_.emplace(runtime_.runtime(), agent_.base() + "/api/events", peer_,
                    [this](Activity activity) {
                      EXPECT_TRUE(runtime_.mainLoop.isCurrent());
                      received_.push_back(std::move(activity));
                    });
  }

  bool opensAgain() {
    return runtime_.runUntil([&] { return agent_.openStreams() == 1; });
  }

  test::FakeAgent agent_;
  test::TestRuntime runtime_;
  std::atomic<uid_t> owner_ = ::geteuid();
  std::atomic<int> ownerQueries_ = 0;
  std::shared_ptr<AgentPeer> peer_ =
      std::make_shared<AgentPeer>([this](const std::string&, std::uint16_t) -> Result<uid_t> {
        ++ownerQueries_;
        return owner_.load();
      });
  std::vector<Activity> received_;
  std::optional<ActivityStream> stream_;
};

TEST_F(ActivityStreamTest, DeliversTheActivityOfEachDataLine) {
  follow();
  ASSERT_TRUE(opensAgain());
  agent_.writeToStreams("data: " + test::activityJSON(true) + "\n\n");
  ASSERT_TRUE(runtime_.runUntil([&] { return received_.size() == 1; }));
  EXPECT_TRUE(received_[0].busy);
}

TEST_F(ActivityStreamTest, ChecksTheOwnerOfThePortOncePerConnection) {
  follow();
  ASSERT_TRUE(opensAgain());
  EXPECT_EQ(ownerQueries_, 1);
  agent_.endStreams();
  ASSERT_TRUE(runtime_.runUntil([&] { return runtime_.clock.pendingTimers() == 1; }));
  runtime_.clock.advance(2s);
  EXPECT_TRUE(runtime_.runUntil([&] { return ownerQueries_ == 2; }));
}

TEST_F(ActivityStreamTest, ItsEndMakesOtherConnectionsCheckTheOwnerAgain) {
  follow();
  ASSERT_TRUE(opensAgain());
  EXPECT_FALSE(peer_->verify("127.0.0.1", 1));
  EXPECT_EQ(ownerQueries_, 1) << "the stream has checked it";
  agent_.endStreams();
  ASSERT_TRUE(runtime_.runUntil([&] { return runtime_.clock.pendingTimers() == 1; }));
  EXPECT_FALSE(peer_->verify("127.0.0.1", 1));
  EXPECT_EQ(ownerQueries_, 2);
}

TEST_F(ActivityStreamTest, SendsNothingToAProgramOfAnotherUser) {
  owner_ = ::geteuid() + 1;
  follow();
  ASSERT_TRUE(runtime_.runUntil([&] { return runtime_.clock.pendingTimers() == 1; }));
  EXPECT_EQ(ownerQueries_, 1);
  EXPECT_TRUE(agent_.requests().empty());
  owner_ = ::geteuid();
  runtime_.clock.advance(2s);
  EXPECT_TRUE(opensAgain()) << "the agent has the port now";
}

TEST_F(ActivityStreamTest, SkipsOtherLinesAndInvalidPayloads) {
  follow();
  ASSERT_TRUE(opensAgain());
  agent_.writeToStreams(": comment\nevent: x\nid: 4\ndata:" + test::activityJSON(true) +
                        "\ndata: {\"busy\":\ndata: []\n\ndata: " +
                        test::activityJSON(false, R"(,"escapeGrants":null)") + "\n");
  ASSERT_TRUE(runtime_.runUntil([&] { return !received_.empty(); }));
  EXPECT_EQ(received_, std::vector{Activity{}});
}

TEST_F(ActivityStreamTest, JoinsACharacterThatArrivesInPieces) {
  follow();
  ASSERT_TRUE(opensAgain());
  const auto line =
      "data: " +
      test::activityJSON(
          true, R"(,"model":{"phase":"failed","downloadedBytes":0,"totalBytes":0,"error":"é"})") +
      "\n";
  for (const char byte : line) agent_.writeToStreams(std::string(1, byte));
  ASSERT_TRUE(runtime_.runUntil([&] { return !received_.empty(); }));
  EXPECT_EQ(received_[0].model->error, "é");
}

/// The same activity would be accepted as the answer to a poll.
TEST_F(ActivityStreamTest, AcceptsALineAsLongAsThePollLimit) {
  follow();
  ASSERT_TRUE(opensAgain());
  const std::string error(15UL << 20, 'x');
  const auto model = R"(,"model":{"phase":"failed","downloadedBytes":0,"totalBytes":0,"error":")" +
                     error + R"("})";
  agent_.writeToStreams("data: " + test::activityJSON(true, model) + "\n\n");
  ASSERT_TRUE(runtime_.runUntil([&] { return !received_.empty(); }));
  EXPECT_EQ(received_[0].model->error, error);
}

TEST_F(ActivityStreamTest, ReconnectsTwoSecondsAfterTheEnd) {
  follow();
  ASSERT_TRUE(opensAgain());
  agent_.endStreams();
  ASSERT_TRUE(runtime_.runUntil([&] { return runtime_.clock.pendingTimers() == 1; }));
  runtime_.clock.advance(1999ms);
  EXPECT_EQ(agent_.requestCount("GET /api/events"), 1U);
  runtime_.clock.advance(1ms);
  EXPECT_TRUE(opensAgain());
}

TEST_F(ActivityStreamTest, TreatsEveryAnswerBut200AsAFailedAttempt) {
  for (const int status : {204, 500, 301}) {
    agent_.setStreamStatus(status);
    const auto before = agent_.requestCount("GET /api/events");
    follow();
    ASSERT_TRUE(runtime_.runUntil([&] { return runtime_.clock.pendingTimers() == 1; }));
    runtime_.clock.advance(2s);
    EXPECT_TRUE(
        runtime_.runUntil([&] { return agent_.requestCount("GET /api/events") == before + 2; }));
    stream_.reset();
    runtime_.clock.advance(10s);
  }
}

TEST_F(ActivityStreamTest, DeliversNothingAfterItsHandleIsDestroyed) {
  follow();
  ASSERT_TRUE(opensAgain());
  agent_.writeToStreams("data: " + test::activityJSON(true) + "\n");
  ASSERT_TRUE(runtime_.mainLoop.waitForTask(10s));
  stream_.reset();
  runtime_.mainLoop.runPending();
  EXPECT_TRUE(received_.empty());
  EXPECT_TRUE(runtime_.runUntil([&] { return agent_.openStreams() == 0; }));
}

TEST_F(ActivityStreamTest, DeliversOnlyTheNewestActivityToABusyMainThread) {
  follow();
  ASSERT_TRUE(opensAgain());
  for (int i = 0; i < 1000; ++i) {
    agent_.writeToStreams(
        "data: " +
        test::activityJSON(false, R"(,"model":{"phase":"ready","downloadedBytes":)" +
                                      std::to_string(i) + R"(,"totalBytes":0})") +
        "\n");
  }
  agent_.endStreams();
  ASSERT_TRUE(test::eventually([&] { return runtime_.clock.pendingTimers() == 1; }));
  runtime_.mainLoop.runPending();
  ASSERT_EQ(received_.size(), 1U);
  EXPECT_EQ(received_[0].model->downloadedBytes, 999);
}

}  // namespace
}  // namespace zephyl
