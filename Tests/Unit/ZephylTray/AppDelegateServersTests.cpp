#include <algorithm>
#include <filesystem>
#include <ranges>

#include <gtest/gtest.h>

#include "Support/FakeDesktop.hpp"
#include "Support/FakeDialogs.hpp"
#include "Support/RawClient.hpp"
#include "Support/TestRuntime.hpp"
#include "Support/TrayWorld.hpp"
#include "System/Files/Shell.hpp"
#include "System/Files/UserDefaults.hpp"
#include "ZephylTray/App/AppDelegate.hpp"
#include "ZephylTray/Config/Config.hpp"
#include "ZephylTray/Menu/MenuActions.hpp"

namespace zephyl {
namespace {

using namespace std::chrono_literals;

class RedeemTest : public ::testing::Test {
 protected:
  RedeemTest() {
    world_.addProgram("packages/tailnet-client/tailscaled");
    world_.addProgram("packages/tailnet-client/zephyl-tailnet");
    world_.addAgent();
    desktop_.applications = {{.identifier = DesktopApp::identifier, .pid = 1}};
    delegate_ = std::make_shared<AppDelegate>(runtime_.runtime(), desktop_, dialogs_);
    delegate_->applicationDidFinishLaunching();
    runtime_.runUntil([&] { return launched(loginShell()) == 1; });  // the agent
  }
  ~RedeemTest() override { delegate_->applicationWillTerminate(); }

  /// How many children were launched from a path that contains `part`.
  std::size_t launched(const std::string& part) {
    return static_cast<std::size_t>(
        std::ranges::count_if(runtime_.launcher.children(), [&](const auto& child) {
          return child->options().executable.find(part) != std::string::npos;
        }));
  }

  std::size_t running(const std::string& name) {
    return static_cast<std::size_t>(
        std::ranges::count_if(runtime_.launcher.children(), [&](const auto& child) {
          return child->isRunning() && child->options().executable.ends_with(name);
        }));
  }

  /// Removes a server and returns what the user is told.
  std::optional<std::string> remove(const std::string& id) {
    std::optional<std::optional<std::string>> result;
    delegate_->removeServer(id, [&](auto failure) { result = std::move(failure); });
    runtime_.runUntil([&] { return result.has_value(); });
    return result.value();
  }

  const ProcessOptions& newestClient() {
    for (const auto& child : runtime_.launcher.children() | std::views::reverse) {
      if (child->options().executable.ends_with("zephyl-tailnet")) return child->options();
    }
    throw std::logic_error("no client was launched");
  }

  const std::string fingerprint_ = std::string(32, 'a');
  test::TrayWorld world_;
  test::ScopedVariable port_{"AGENT_TRAY_PORT", "1"};
  test::ScopedVariable controlPort_{"ZEPHYL_ONBOARD_PORT", std::to_string(test::freePort())};
  test::TestRuntime runtime_;
  test::FakeDesktop desktop_;
  test::FakeDialogs dialogs_;
  std::shared_ptr<AppDelegate> delegate_;
};

TEST_F(RedeemTest, RegistersTheServerEnrolsItAndRestartsTheAgent) {
  EXPECT_EQ(delegate_->redeem(" inv_v2_" + std::string(32, 'A') + "_one\n"), std::nullopt);
  ASSERT_EQ(Servers::all().size(), 1U);
  EXPECT_EQ(Servers::all()[0].tailnetFingerprint, fingerprint_);
  EXPECT_EQ(Config::defaults().string("tailnetFingerprint"), fingerprint_);
  runtime_.advance(2s);
  EXPECT_EQ(newestClient().environment.at("ZEPHYL_PREAUTH_KEY"), "hskey-auth-one");
  EXPECT_EQ(launched(loginShell()), 2U);
}

TEST_F(RedeemTest, ASecondKeyForAKnownServerReplacesItsTailnetAndKeepsItsEntry) {
  delegate_->redeem("inv_v2_" + fingerprint_ + "_one");
  Servers::update(Servers::all()[0].id, [](ServerEntry& entry) {
    entry.label = "Lab";
    entry.address = "http://lab";
    entry.enabled = false;
  });
  runtime_.advance(2s);
  delegate_->redeem("\tinv1_" + std::string(32, 'A') + "_two ");
  runtime_.advance(2s);
  ASSERT_EQ(Servers::all().size(), 1U);
  const auto entry = Servers::all()[0];
  EXPECT_EQ(entry.label, "Lab");
  EXPECT_EQ(entry.address, "http://lab");
  EXPECT_TRUE(entry.enabled);
  EXPECT_EQ(newestClient().environment.at("ZEPHYL_PREAUTH_KEY"), "two");
  EXPECT_EQ(newestClient().arguments.back(), "http://lab");
  EXPECT_EQ(launched("tailscaled"), 2U);
  EXPECT_EQ(launched(loginShell()), 3U) << "the agent is restarted each time";
}

TEST_F(RedeemTest, AKeyThatCannotBeReadChangesNothing) {
  EXPECT_EQ(delegate_->redeem("inv_v2_xyz_"),
            "The invite key's fingerprint is invalid. Ask for a fresh invite.");
  runtime_.advance(2s);
  EXPECT_TRUE(Servers::all().empty());
  EXPECT_EQ(Config::defaults().string("tailnetFingerprint"), std::nullopt);
  EXPECT_EQ(launched(loginShell()), 1U);
}

/// From now on the registry cannot be saved.
class UnsavableTest : public RedeemTest {
 protected:
  void breakRegistry() {
    std::filesystem::remove(path_);
    std::filesystem::create_directories(path_);
  }

  const std::string path_ = world_.baseDirectory() + "/servers.json";
  const std::string reason_ = path_ + ": Is a directory";
  const std::string unchanged_ =
      "The change could not be saved, so nothing was changed: " + reason_;
};

TEST_F(UnsavableTest, AServerIsNotJoinedAndItsKeyStaysUnused) {
  breakRegistry();
  EXPECT_EQ(delegate_->redeem("inv_v2_" + fingerprint_ + "_one"),
            "The server could not be saved, so the invite key was not used: " + reason_);
  runtime_.advance(2s);
  EXPECT_TRUE(Servers::all().empty());
  EXPECT_EQ(Config::defaults().string("tailnetFingerprint"), std::nullopt);
  EXPECT_EQ(launched("tailscaled"), 0U);
  EXPECT_EQ(launched(loginShell()), 1U) << "the agent is not restarted";
}

TEST_F(UnsavableTest, NoSettingOfAServerIsReportedAsChanged) {
  const auto id = Servers::add("", "http://lab", std::nullopt)->id;
  breakRegistry();
  EXPECT_EQ(delegate_->setServerLabel(id, "Lab"), unchanged_);
  EXPECT_EQ(delegate_->setServerAccent(id, "#336699"), unchanged_);
  EXPECT_EQ(delegate_->setServerEnabled(id, false), unchanged_);
  runtime_.advance(2s);
  EXPECT_EQ(Servers::all()[0].label, "");
  EXPECT_EQ(Servers::all()[0].accent, std::nullopt);
  EXPECT_TRUE(Servers::all()[0].enabled);
  EXPECT_EQ(launched(loginShell()), 1U) << "the agent is not restarted";
}

TEST_F(UnsavableTest, AServerThatCannotBeRemovedGoesOnRunning) {
  delegate_->redeem("inv_v2_" + fingerprint_ + "_one");
  runtime_.advance(2s);
  ASSERT_EQ(running("zephyl-tailnet"), 1U);
  breakRegistry();
  EXPECT_EQ(remove(Servers::all()[0].id), unchanged_);
  runtime_.advance(2s);
  EXPECT_EQ(Servers::all().size(), 1U);
  EXPECT_EQ(running("zephyl-tailnet"), 1U);
  EXPECT_EQ(Config::defaults().string("tailnetFingerprint"), fingerprint_);
}

TEST_F(UnsavableTest, TheMenuSaysThatAServerCannotBeConnected) {
  const auto id = Servers::add("", "http://lab", std::nullopt)->id;
  Servers::update(id, [](ServerEntry& entry) { entry.enabled = false; });
  breakRegistry();
  desktop_.item.events.chosen(MenuAction(TrayAction(menuActions::ConnectServer(id))));
  ASSERT_EQ(dialogs_.alerts().size(), 1U);
  EXPECT_EQ(dialogs_.alerts()[0].messageText, "The server couldn't be connected");
  EXPECT_EQ(dialogs_.alerts()[0].informativeText, unchanged_);
}

TEST_F(RedeemTest, ASettingOfAServerThatIsGoneSaysSo) {
  EXPECT_EQ(delegate_->setServerLabel("none", "x"), "That server is gone.");
  EXPECT_EQ(delegate_->setServerAccent("none", "x"), "That server is gone.");
  EXPECT_EQ(delegate_->setServerEnabled("none", true), "That server is gone.");
  EXPECT_EQ(remove("none"), "That server is gone.");
}

TEST_F(RedeemTest, LabelAndAccentAreStoredTrimmed) {
  const auto id = Servers::add("", "http://lab", std::nullopt)->id;
  EXPECT_EQ(delegate_->setServerLabel(id, " \tLab "), std::nullopt);
  EXPECT_EQ(delegate_->setServerAccent(id, " #123456 "), std::nullopt);
  EXPECT_EQ(Servers::all()[0].label, "Lab");
  EXPECT_EQ(Servers::all()[0].accent, "#123456");
  EXPECT_EQ(delegate_->setServerAccent(id, "  "), std::nullopt);
  EXPECT_EQ(Servers::all()[0].accent, std::nullopt);
}

TEST_F(RedeemTest, DisablingAServerEndsItsTailnetAndRestartsTheAgent) {
  delegate_->redeem("inv_v2_" + fingerprint_ + "_one");
  runtime_.advance(2s);
  const auto id = Servers::all()[0].id;
  const auto launches = launched(loginShell());
  EXPECT_EQ(delegate_->setServerEnabled(id, false), std::nullopt);
  runtime_.advance(2s);
  EXPECT_FALSE(Servers::all()[0].enabled);
  EXPECT_EQ(running("zephyl-tailnet"), 0U);
  EXPECT_EQ(launched(loginShell()), launches + 1);
  EXPECT_EQ(delegate_->setServerEnabled(id, true), std::nullopt);
  runtime_.advance(2s);
  EXPECT_EQ(running("zephyl-tailnet"), 1U);
}

TEST_F(RedeemTest, RestartingATailnetRestartsThatOfEveryServer) {
  delegate_->redeem("inv_v2_" + fingerprint_ + "_one");
  delegate_->redeem("inv_v2_" + std::string(32, 'b') + "_two");
  runtime_.advance(2s);
  ASSERT_EQ(running("tailscaled"), 2U);
  const auto before = launched("tailscaled");
  desktop_.item.events.chosen(MenuAction(TrayAction(menuActions::RestartTailnet())));
  runtime_.advance(10s);
  EXPECT_EQ(launched("tailscaled"), before + 2);
  EXPECT_EQ(running("tailscaled"), 2U);
}

TEST_F(RedeemTest, RemovingTheLastJoinedServerForgetsTheEnrolment) {
  delegate_->redeem("inv_v2_" + fingerprint_ + "_one");
  delegate_->redeem("inv_v2_" + std::string(32, 'b') + "_two");
  runtime_.advance(2s);
  EXPECT_EQ(remove(Servers::all()[0].id), std::nullopt);
  EXPECT_TRUE(Config::defaults().string("tailnetFingerprint"));
  EXPECT_EQ(running("zephyl-tailnet"), 1U);
  EXPECT_EQ(remove(Servers::all()[0].id), std::nullopt);
  EXPECT_FALSE(Config::defaults().string("tailnetFingerprint"));
  EXPECT_EQ(running("zephyl-tailnet"), 0U);
  EXPECT_TRUE(Servers::all().empty());
}

TEST_F(RedeemTest, OnboardingIsNeededUntilAServerCanBeUsed) {
  EXPECT_TRUE(AppDelegate::needsOnboarding());
  const auto id = Servers::add("", "http://lab", std::nullopt)->id;
  EXPECT_FALSE(AppDelegate::needsOnboarding());
  Servers::update(id, [](ServerEntry& entry) { entry.enabled = false; });
  EXPECT_TRUE(AppDelegate::needsOnboarding());
  delegate_->redeem("inv_v2_" + fingerprint_ + "_one");
  EXPECT_FALSE(AppDelegate::needsOnboarding());
}

}  // namespace
}  // namespace zephyl
