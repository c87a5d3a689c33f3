#include "Desktop/Model/Joining.hpp"

#include <gtest/gtest.h>

namespace zephyl::sandbox::desktop {
namespace {

using Step = Joining::Step;

const ServerEntry office{
    .id = "1", .enabled = true, .usesTailnet = true, .running = true, .enrolled = true};
const ServerEntry starting{.id = "2", .enabled = true, .usesTailnet = true};

ServerEntry withError(ServerEntry server, const std::string& error) {
  server.enrolError = error;
  return server;
}

ServerEntry connected(ServerEntry server) {
  server.running = server.enrolled = true;
  return server;
}

TEST(Joining, ReportsAKeyThatTheTrayRefuses) {
  Joining joining;
  joining.begin({});
  EXPECT_EQ(joining.step(), Step::sending);
  joining.refused("That doesn't look like a Zephyl invite key.");
  EXPECT_EQ(joining.step(), Step::idle);
  EXPECT_EQ(joining.error(), "That doesn't look like a Zephyl invite key.");
  EXPECT_EQ(joining.progress(), "");
}

TEST(Joining, FollowsTheNewServerUntilItIsConnected) {
  Joining joining;
  joining.begin({office});
  joining.accepted();
  joining.update({office, starting});
  EXPECT_EQ(joining.serverId(), "2");
  EXPECT_EQ(joining.progress(), "Starting the private network…");
  auto running = starting;
  running.running = true;
  joining.update({office, running});
  EXPECT_EQ(joining.progress(), "Connecting to the server…");
  joining.update({office, connected(starting)});
  EXPECT_EQ(joining.step(), Step::connected);
}

TEST(Joining, ReportsAKeyThatTheServerRefuses) {
  Joining joining;
  joining.begin({});
  joining.accepted();
  joining.update({withError(starting, "key expired")});
  EXPECT_EQ(joining.step(), Step::idle);
  EXPECT_EQ(joining.error(),
            "The server did not accept the invite key: key expired. Ask for a fresh invite.");
}

TEST(Joining, DoesNotMistakeTheErrorOfAnEarlierKeyForANewOne) {
  const auto refused = withError(starting, "key expired");
  Joining joining;
  joining.begin({});
  joining.accepted();
  joining.update({refused});
  joining.begin({refused});
  EXPECT_EQ(joining.error(), "");
  joining.accepted();
  joining.update({refused});
  EXPECT_TRUE(joining.isUnderWay());
  joining.update({connected(starting)});
  EXPECT_EQ(joining.step(), Step::connected);
}

TEST(Joining, ReportsTheSameErrorOfANewKeyIfItStays) {
  const auto refused = withError(starting, "key expired");
  Joining joining;
  joining.begin({});
  joining.accepted();
  joining.update({refused});
  joining.begin({refused});
  joining.accepted();
  for (int i = 0; i < 6; ++i) joining.update({refused});
  EXPECT_EQ(joining.step(), Step::idle);
}

TEST(Joining, AssignsAKeyForAKnownServerToTheOneThatIsNotConnected) {
  Joining joining;
  joining.begin({office, starting});
  joining.accepted();
  joining.update({office, starting});
  EXPECT_EQ(joining.serverId(), "2");
}

TEST(Joining, ShowsWhatKeepsTheServerFromConnecting) {
  Joining joining;
  joining.begin({});
  joining.accepted();
  auto stalled = starting;
  stalled.tailnetStalled = "it failed 5 times";
  joining.update({stalled});
  EXPECT_EQ(joining.progress(), "Starting the private network… (it failed 5 times)");
}

TEST(Joining, EndsWhenTheServerIsRemoved) {
  Joining joining;
  joining.begin({});
  joining.accepted();
  joining.update({});
  EXPECT_EQ(joining.step(), Step::idle);
  EXPECT_NE(joining.error(), "");
}

}  // namespace
}  // namespace zephyl::sandbox::desktop
