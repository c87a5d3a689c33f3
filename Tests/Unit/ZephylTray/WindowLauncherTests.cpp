#include "ZephylTray/Actions/WindowLauncher.hpp"

#include <gtest/gtest.h>

namespace zephyl {
namespace {

/// A launcher of fake windows.
class WindowLauncherTest : public ::testing::Test {
 protected:
  using Strings = std::vector<std::string>;

  std::optional<std::string> webAddress() { return launcher_->webAddressOf("100.64.0.7:80"); }

  bool installed_ = true;
  std::vector<DesktopLaunch> launches_;
  Strings screens_;
  std::optional<ControlAccess> access_ = ControlAccess{.token = "t", .port = 7};
  std::vector<ServerEntry> enabled_;
  std::optional<std::string> primaryAddress_;
  Strings opened_;
  std::vector<std::function<void(const HostAddresses&)>> lookUps_;
  std::shared_ptr<WindowLauncher> launcher_ = std::make_shared<WindowLauncher>(WindowLauncher::Port{
      .isInstalled = [this] { return installed_; },
      .launch = [this](DesktopLaunch launch) { launches_.push_back(std::move(launch)); },
      .setPendingRoute = [this](const std::string& screen) { screens_.push_back(screen); },
      .controlAccess = [this] { return access_; },
      .enabledServers = [this] { return enabled_; },
      .primaryAddress = [this] { return primaryAddress_; },
      .addressOf =
          [](const std::string& id) {
            return id == "id-1" ? std::optional<std::string>("100.64.0.9:8080") : std::nullopt;
          },
      .openURL = [this](const std::string& url) { opened_.push_back(url); },
      .lookUpHost =
          [this](const std::string& host, auto done) {
            EXPECT_EQ(host, "zephyl.internal");
            lookUps_.push_back(done);
          },
  });
};

TEST_F(WindowLauncherTest, PassesServerAndOnboardingToTheDesktopApp) {
  launcher_->openDesktopWindow();
  EXPECT_EQ(launches_.at(0).serverURL, std::nullopt);
  EXPECT_TRUE(launches_.at(0).needsOnboarding);
  EXPECT_EQ(launches_.at(0).control->port, 7);
  primaryAddress_ = "100.64.0.7:80";
  enabled_ = {{.tailnetFingerprint = "a"}};
  access_.reset();
  launcher_->openDesktopWindow();
  EXPECT_EQ(launches_.at(1).serverURL, "http://100.64.0.7:80");
  EXPECT_FALSE(launches_.at(1).needsOnboarding);
  EXPECT_FALSE(launches_.at(1).control);
  EXPECT_TRUE(screens_.empty());
}

TEST_F(WindowLauncherTest, OpensAScreenOfTheDesktopApp) {
  launcher_->openInShell("servers/a/rename");
  EXPECT_EQ(screens_, Strings{"servers/a/rename"});
  EXPECT_EQ(launches_.size(), 1U);
}

TEST_F(WindowLauncherTest, OpensAScreenOnlyIfTheAppIsInstalled) {
  EXPECT_TRUE(launcher_->openInShellIfInstalled("join"));
  installed_ = false;
  EXPECT_FALSE(launcher_->openInShellIfInstalled("join"));
  EXPECT_EQ(screens_, Strings{"join"});
}

TEST_F(WindowLauncherTest, OpensTheScreenThatNeedsTheUser) {
  launcher_->openNextStep();
  enabled_ = {{.address = "http://lab"}};
  launcher_->openNextStep();
  EXPECT_EQ(screens_, (Strings{"join", "servers"}));
}

TEST_F(WindowLauncherTest, OnboardingIsNeededUntilAServerCanBeUsed) {
  EXPECT_TRUE(launcher_->needsOnboarding());
  enabled_ = {{.address = "", .tailnetFingerprint = ""}};
  EXPECT_TRUE(launcher_->needsOnboarding());
  enabled_.push_back({.address = "http://lab"});
  EXPECT_FALSE(launcher_->needsOnboarding());
  enabled_ = {{.tailnetFingerprint = "a"}};
  EXPECT_FALSE(launcher_->needsOnboarding());
}

TEST_F(WindowLauncherTest, OpensWebPagesOfServersWhoseAddressIsKnown) {
  launcher_->openInBrowser();
  launcher_->openServerInBrowser("none");
  EXPECT_TRUE(opened_.empty());
  primaryAddress_ = "100.64.0.7:80";
  launcher_->openInBrowser();
  launcher_->openServerInBrowser("id-1");
  EXPECT_EQ(opened_, (Strings{"http://100.64.0.7:80", "http://100.64.0.9:8080"}));
}

TEST_F(WindowLauncherTest, AnnouncesAnUnresolvedTargetOncePerServer) {
  launcher_->announceUnresolvedTarget({.id = "a"});
  launcher_->announceUnresolvedTarget({.id = "a"});
  launcher_->announceUnresolvedTarget({.id = "b"});
  EXPECT_EQ(screens_, (Strings{"servers", "servers"}));
}

TEST_F(WindowLauncherTest, AnnouncesLaterWhatItCouldNotShow) {
  installed_ = false;
  launcher_->announceUnresolvedTarget({.id = "a"});
  EXPECT_TRUE(screens_.empty());
  installed_ = true;
  launcher_->announceUnresolvedTarget({.id = "a"});
  EXPECT_EQ(screens_, Strings{"servers"});
}

TEST_F(WindowLauncherTest, AnEmptyAddressIsIgnored) {
  EXPECT_EQ(launcher_->webAddressOf(std::nullopt), std::nullopt);
  EXPECT_EQ(launcher_->webAddressOf(""), std::nullopt);
}

TEST_F(WindowLauncherTest, TheInternalNameReplacesTheAddressIfItResolvesToLoopback) {
  launcher_->lookUpInternalHost();
  EXPECT_EQ(webAddress(), "http://100.64.0.7:80");
  lookUps_.at(0)({"127.100.0.1", "::1"});
  EXPECT_EQ(webAddress(), "http://zephyl.internal");
  launcher_->lookUpInternalHost();
  EXPECT_EQ(lookUps_.size(), 1U) << "the first answer is final";
}

TEST_F(WindowLauncherTest, TheInternalNameIsNotUsedIfItResolvesElsewhere) {
  launcher_->lookUpInternalHost();
  lookUps_.at(0)({"127.0.0.1", "203.0.113.9"});
  EXPECT_EQ(webAddress(), "http://100.64.0.7:80");
  lookUps_.at(0)({});
  EXPECT_EQ(webAddress(), "http://100.64.0.7:80");
}

TEST_F(WindowLauncherTest, AnAnswerAfterItsDestructionIsIgnored) {
  launcher_->lookUpInternalHost();
  launcher_.reset();
  lookUps_.at(0)({"127.0.0.1"});
}

}  // namespace
}  // namespace zephyl
