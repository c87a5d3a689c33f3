#include "Desktop/Client/ServerState.hpp"

#include <gtest/gtest.h>

namespace zephyl::sandbox::desktop {
namespace {

TEST(ServerState, FollowsFromTheFieldsOfAServer) {
  ServerEntry server{.enabled = true, .usesTailnet = true};
  EXPECT_EQ(stateOf(server), ServerState::networkDown);
  server.running = true;
  EXPECT_EQ(stateOf(server), ServerState::networkUp);
  server.enrolled = true;
  EXPECT_EQ(stateOf(server), ServerState::connected);
  server.enabled = false;
  EXPECT_EQ(stateOf(server), ServerState::disabled);
  EXPECT_EQ(stateOf({.enabled = true}), ServerState::notConnected);
}

TEST(ServerState, ListsProblemsWithTheRefusedKeyFirst) {
  const ServerEntry server{.enrolError = "key expired",
                           .tailnetStalled = "it failed",
                           .agentError = "refused",
                           .addressUnresolved = "zephyl.example"};
  std::vector<std::string> reasons;
  for (const auto& problem : problemsOf(server)) {
    reasons.push_back(problem.reason);
    EXPECT_FALSE(problem.explanation.empty());
  }
  EXPECT_EQ(reasons, (std::vector<std::string>{"key expired", "it failed", "refused",
                                               "cannot resolve zephyl.example"}));
  EXPECT_TRUE(problemsOf({}).empty());
}

}  // namespace
}  // namespace zephyl::sandbox::desktop
