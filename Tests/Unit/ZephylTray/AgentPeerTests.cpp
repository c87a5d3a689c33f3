#include "ZephylTray/Agent/AgentPeer.hpp"

#include <gtest/gtest.h>

#include <unistd.h>

#include "Support/LogCapture.hpp"

namespace zephyl {
namespace {

class AgentPeerTest : public ::testing::Test {
 protected:
  bool verified() { return !peer_.verify("127.0.0.1", 8799); }

  Result<uid_t> owner_ = ::geteuid();
  int queries_ = 0;
  AgentPeer peer_{[this](const std::string& address, std::uint16_t port) {
    EXPECT_EQ(address, "127.0.0.1");
    EXPECT_EQ(port, 8799);
    ++queries_;
    return owner_;
  }};
};

constexpr auto complaint =
    "[tray] port 8799 belongs to a program of another user (user id 54321), which is not "
    "accepted as the agent; end that program or set another \"trayPort\"\n";

TEST_F(AgentPeerTest, AcceptsAProgramOfThisUserOrRoot) {
  EXPECT_TRUE(verified());
  owner_ = uid_t{0};
  peer_.forget();
  EXPECT_TRUE(verified());
}

TEST_F(AgentPeerTest, RejectsAProgramOfAnotherUser) {
  owner_ = uid_t{54321};
  test::logOf([&] {
    const auto error = peer_.verify("127.0.0.1", 8799);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->message, "port 8799 belongs to another user's program");
  });
}

TEST_F(AgentPeerTest, RejectsAProgramOfAnUnknownOwner) {
  owner_ = Error{"not known"};
  EXPECT_EQ(test::logOf([&] {
              const auto error = peer_.verify("127.0.0.1", 8799);
              ASSERT_TRUE(error);
              EXPECT_EQ(error->message, "not known");
            }),
            "");
}

TEST_F(AgentPeerTest, IsQueriedOnceUntilForgotten) {
  EXPECT_TRUE(verified());
  owner_ = uid_t{54321};
  EXPECT_TRUE(verified());
  EXPECT_EQ(queries_, 1);
  peer_.forget();
  test::logOf([&] { EXPECT_FALSE(verified()); });
  EXPECT_EQ(queries_, 2);
}

TEST_F(AgentPeerTest, IsReportedOnceUntilTheOwnerIsTrusted) {
  owner_ = uid_t{54321};
  EXPECT_EQ(test::logOf([&] {
              EXPECT_FALSE(verified());
              EXPECT_FALSE(verified());
              peer_.forget();
              EXPECT_FALSE(verified());
            }),
            complaint);
  owner_ = ::geteuid();
  EXPECT_TRUE(verified());
  owner_ = uid_t{54321};
  peer_.forget();
  EXPECT_EQ(test::logOf([&] { EXPECT_FALSE(verified()); }), complaint);
}

}  // namespace
}  // namespace zephyl
