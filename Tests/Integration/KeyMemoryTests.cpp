#include <algorithm>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include <unistd.h>

#include "Integration/RealChildren.hpp"
#include "Support/Eventually.hpp"
#include "Support/MemorySearch.hpp"
#include "Support/TrayWorld.hpp"
#include "System/Data/Secret.hpp"
#include "ZephylTray/Registry/InviteKey.hpp"
#include "ZephylTray/Tailnet/TailnetProcess.hpp"

namespace zephyl {
namespace {

class KeyMemory : public ::testing::Test {
 protected:
  KeyMemory() {
    world_.addProgram("packages/tailnet-client/tailscaled", "#!/bin/sh\nexec sleep 600\n");
    world_.addProgram("packages/tailnet-client/zephyl-tailnet",
                      "#!/bin/sh\n"
                      "[ -n \"$ZEPHYL_PREAUTH_KEY\" ] && echo was given a key\n"
                      "until [ -e " +
                          world_.directory() / "go" +
                          " ]; do sleep 0.01; done\n"
                          "echo joined the tailnet\n"
                          "exec sleep 600\n");
    const ServerEntry server{.id = "0123456789ab-4000-8000-000000000000",
                             .tailnetFingerprint = fingerprint,
                             .ports = {1055, 8800, "127.100.0.3", 8085},
                             .enabled = true};
    tailnet_ = std::make_shared<TailnetProcess>(runtime_.runtime(), server);
  }
  ~KeyMemory() override { tailnet_->stop(); }

  /// Joins a server with the key, like the controller does with a pasted one.
  void redeem() {
    SecretString pasted;
    pasted.append("inv_v2_").append(fingerprint).append("_");
    for (const char character : disguisedKey_) {
      const char plain = static_cast<char>(~character);
      pasted.append({&plain, 1});
    }
    auto parsed = InviteKey::parse(pasted);
    ASSERT_TRUE(parsed);
    tailnet_->startRedeeming(std::move(parsed->preauthKey));
  }

  void awaitLine(const std::string& line) {
    ASSERT_TRUE(test::eventually([&] {
      runtime_.settle();
      const auto log = tailnet_->recentLog();
      return std::ranges::find(log, line) != log.end();
    }));
  }

  static constexpr auto fingerprint = "0123456789abcdef0123456789abcdef";
  test::TrayWorld world_;
  test::RealChildren runtime_;
  std::shared_ptr<TailnetProcess> tailnet_;
  std::string disguisedKey_;
};

TEST_F(KeyMemory, HoldsOneCopyUntilTheJoinSucceedsAndNoneFromThenOn) {
  // Letters that no other text contains, and that are not constants of the program.
  for (int i = 0; i < 40; ++i) {
    disguisedKey_.push_back(static_cast<char>(~('g' + (::getpid() + i * i) % 17)));
  }
  // The allocator overwrites the beginning of freed memory.
  const std::string rest = disguisedKey_.substr(16);
  test::MemorySearch search;
  ASSERT_EQ(search.count(rest), 0U);

  redeem();
  runtime_.advance(TailnetProcess::restartDelay);
  runtime_.advance(TailnetProcess::clientDelay);
  awaitLine("[tailnet] was given a key");
  EXPECT_EQ(search.count(rest), 1U);

  (void)world_.directory().write("go", "");
  awaitLine("[tailnet] joined the tailnet");
  EXPECT_EQ(search.count(rest), 0U);
}

}  // namespace
}  // namespace zephyl
