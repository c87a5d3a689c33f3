#include <algorithm>
#include <ranges>

#include <gtest/gtest.h>

#include "Support/FakeDesktop.hpp"
#include "Support/TestRuntime.hpp"
#include "Support/TrayWorld.hpp"
#include "System/UserDefaults.hpp"
#include "ZephylTray/AppDelegate.hpp"
#include "ZephylTray/Config.hpp"

namespace zephyl {
namespace {

using namespace std::chrono_literals;

class RedeemTest : public ::testing::Test {
 protected:
  RedeemTest() {
    world_.addProgram("packages/tailnet-client/tailscaled");
    world_.addProgram("packages/tailnet-client/zephyl-tailnet");
    world_.addAgent();
    delegate_ = std::make_shared<AppDelegate>(runtime_.runtime(), desktop_);
    delegate_->applicationDidFinishLaunching();
    runtime_.runUntil([&] { return launched("/bin/") == 1; });  // the agent
  }
  ~RedeemTest() override { delegate_->applicationWillTerminate(); }

  /// How many children were launched from a path that contains `part`.
  std::size_t launched(const std::string& part) {
    return static_cast<std::size_t>(
        std::ranges::count_if(runtime_.launcher.children(), [&](const auto& child) {
          return child->options().executable.find(part) != std::string::npos;
        }));
  }

  const ProcessOptions& newestClient() {
    for (auto child : runtime_.launcher.children() | std::views::reverse) {
      if (child->options().executable.ends_with("zephyl-tailnet")) return child->options();
    }
    throw std::logic_error("no client was launched");
  }

  const std::string fingerprint_ = std::string(32, 'a');
  test::TrayWorld world_;
  test::ScopedVariable port_{"AGENT_TRAY_PORT", "1"};
  test::TestRuntime runtime_;
  test::FakeDesktop desktop_;
  std::shared_ptr<AppDelegate> delegate_;
};

TEST_F(RedeemTest, RegistersTheServerEnrolsItAndRestartsTheAgent) {
  EXPECT_EQ(delegate_->redeem(" inv_v2_" + std::string(32, 'A') + "_one\n"), std::nullopt);
  ASSERT_EQ(Servers::all().size(), 1U);
  EXPECT_EQ(Servers::all()[0].tailnetFingerprint, fingerprint_);
  EXPECT_EQ(Config::defaults().string("tailnetFingerprint"), fingerprint_);
  runtime_.advance(2s);
  EXPECT_EQ(newestClient().environment.at("ZEPHYL_PREAUTH_KEY"), "hskey-auth-one");
  EXPECT_EQ(launched("/bin/"), 2U);
}

TEST_F(RedeemTest, ASecondKeyForAKnownServerReplacesItsTailnetAndKeepsItsEntry) {
  delegate_->redeem("inv_v2_" + fingerprint_ + "_one");
  Servers::update(Servers::all()[0].id, [](ServerEntry& entry) {
    entry.label = "Lab";
    entry.address = "http://lab";
    entry.enabled = false;
  });
  runtime_.advance(2s);
  delegate_->redeem("inv1_" + fingerprint_ + "_two");
  runtime_.advance(2s);
  ASSERT_EQ(Servers::all().size(), 1U);
  const auto entry = Servers::all()[0];
  EXPECT_EQ(entry.label, "Lab");
  EXPECT_EQ(entry.address, "http://lab");
  EXPECT_TRUE(entry.enabled);
  EXPECT_EQ(newestClient().environment.at("ZEPHYL_PREAUTH_KEY"), "two");
  EXPECT_EQ(newestClient().arguments.back(), "http://lab");
  EXPECT_EQ(launched("tailscaled"), 2U);
}

TEST_F(RedeemTest, AKeyThatCannotBeReadChangesNothing) {
  EXPECT_EQ(delegate_->redeem("inv_v2_xyz_"),
            "The invite key's fingerprint is invalid. Ask for a fresh invite.");
  runtime_.advance(2s);
  EXPECT_TRUE(Servers::all().empty());
  EXPECT_EQ(Config::defaults().string("tailnetFingerprint"), std::nullopt);
  EXPECT_EQ(launched("/bin/"), 1U);
}

}  // namespace
}  // namespace zephyl
