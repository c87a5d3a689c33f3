#include "System/Network/HostLookup.hpp"

#include <optional>

#include <gtest/gtest.h>

#include "Support/FakeLauncher.hpp"
#include "Support/LogCapture.hpp"
#include "System/Concurrency/MainLoop.hpp"

namespace zephyl {
namespace {

class HostLookupTest : public ::testing::Test {
 protected:
  void lookUp() {
    lookUpHost(launcher_, mainLoop_, "host.example",
               [this](const HostAddresses& addresses) { addresses_ = addresses; });
  }
  std::optional<HostAddresses> found() {
    EXPECT_FALSE(addresses_) << "not before the main loop runs";
    mainLoop_.runPending();
    return addresses_;
  }

  MainLoop mainLoop_;
  test::FakeLauncher launcher_;
  std::optional<HostAddresses> addresses_;
};

TEST_F(HostLookupTest, AsksTheSystemsResolver) {
  lookUp();
  const auto child = launcher_.newest();
  EXPECT_EQ(child->options().executable, "/usr/bin/getent");
  EXPECT_EQ(child->options().arguments, (std::vector<std::string>{"ahosts", "host.example"}));
  EXPECT_FALSE(found());
}

TEST_F(HostLookupTest, UsesTheFirstWordOfEachLine) {
  lookUp();
  launcher_.newest()->print({"127.0.0.1       STREAM host.example", "::1             DGRAM", ""});
  launcher_.newest()->print({"203.0.113.9"});
  launcher_.newest()->exit({});
  EXPECT_EQ(found(), (HostAddresses{"127.0.0.1", "::1", "203.0.113.9"}));
}

TEST_F(HostLookupTest, FindsNothingWhenTheResolverFails) {
  lookUp();
  launcher_.newest()->print({"127.0.0.1 STREAM"});
  launcher_.newest()->exit({ExitStatus::Reason::exited, 2});
  EXPECT_EQ(found(), HostAddresses());
}

TEST_F(HostLookupTest, FindsNothingWhenTheResolverCannotBeStarted) {
  launcher_.failWith("no such file");
  EXPECT_EQ(test::logOf([&] { lookUp(); }),
            "[tray] could not look up host.example: no such file\n");
  EXPECT_EQ(found(), HostAddresses());
}

TEST_F(HostLookupTest, BoundsTheOutputOfTheResolver) {
  lookUp();
  launcher_.newest()->print(std::vector<std::string>(1000, "127.0.0.1 STREAM"));
  launcher_.newest()->exit({});
  EXPECT_EQ(found()->size(), 256U);
}

TEST(Loopback, AcceptsOnlyThisMachine) {
  for (const char* address :
       {"127.0.0.1", "127.100.0.7", "127.255.255.254", "::1", "::ffff:127.0.0.1"}) {
    EXPECT_TRUE(isLoopback(address)) << address;
  }
  for (const char* address : {"", "localhost", "203.0.113.9", "0.0.0.0", "::", "fe80::1",
                              "::ffff:203.0.113.9", "128.0.0.1", "127.0.0.1 ", "2130706433"}) {
    EXPECT_FALSE(isLoopback(address)) << address;
  }
}

}  // namespace
}  // namespace zephyl
