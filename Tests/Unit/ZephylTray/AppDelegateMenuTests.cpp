#include <filesystem>
#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

#include "Support/FakeDesktop.hpp"
#include "Support/FakeDialogs.hpp"
#include "Support/RawClient.hpp"
#include "Support/TestRuntime.hpp"
#include "Support/TrayWorld.hpp"
#include "ZephylTray/App/AppDelegate.hpp"
#include "ZephylTray/Menu/MenuActions.hpp"

namespace zephyl {
namespace {

using namespace std::chrono_literals;

/// A controller, and a user who chooses from its menu and its log windows.
class MenuTest : public ::testing::Test {
 protected:
  MenuTest() {
    world_.addProgram("packages/tailnet-client/tailscaled");
    world_.addProgram("packages/tailnet-client/zephyl-tailnet");
    desktop_.applications = {{.identifier = DesktopApp::identifier, .pid = 1}};
    delegate_ = std::make_shared<AppDelegate>(runtime_.runtime(), desktop_, dialogs_);
    delegate_->applicationDidFinishLaunching();
    runtime_.runUntil([&] { return !dialogs_.logWindows().empty(); });  // there is no agent
  }
  ~MenuTest() override { delegate_->applicationWillTerminate(); }

  void choose(TrayAction action) { desktop_.item.events.chosen(MenuAction(std::move(action))); }
  /// A joined server whose tailnet is up.
  std::string joinServer(const std::string& address = "100.64.0.7:8080") {
    delegate_->redeem("inv_v2_" + std::string(32, 'a') + "_one");
    runtime_.advance(2s);
    runtime_.launcher.newest()->print({"data tunnel on http://" + address});
    runtime_.settle();
    return Servers::all()[0].id;
  }
  [[nodiscard]] std::size_t activations() const { return desktop_.activated.size(); }

  test::TrayWorld world_;
  test::ScopedVariable agentPort_{"AGENT_TRAY_PORT", "1"};
  test::ScopedVariable controlPort_{"ZEPHYL_ONBOARD_PORT", std::to_string(test::freePort())};
  test::ScopedVariable temporary_{"TMPDIR", world_.directory().path()};
  test::TestRuntime runtime_;
  test::FakeDesktop desktop_;
  test::FakeDialogs dialogs_;
  std::shared_ptr<AppDelegate> delegate_;
};

TEST_F(MenuTest, IsNotRebuiltWhileItIsOpen) {
  desktop_.item.events.willOpen();
  const int before = desktop_.item.menusSet;
  delegate_->setServerLabel(Servers::add("", "http://lab", std::nullopt)->id, "Lab");
  EXPECT_EQ(desktop_.item.menusSet, before);
  desktop_.item.events.didClose();
  desktop_.item.events.needsUpdate();
  EXPECT_EQ(desktop_.item.menusSet, before + 1);
}

TEST_F(MenuTest, OpensTheDesktopAppAtItsScreens) {
  const auto id = joinServer();
  for (const TrayAction& action : std::initializer_list<TrayAction>{
           menuActions::OpenDesktopWindow(), menuActions::RedeemInvite(),
           menuActions::RenameServer(id), menuActions::RemoveServer(id)}) {
    const auto before = activations();
    choose(action);
    EXPECT_EQ(activations(), before + 1) << action.index();
  }
  desktop_.events.reopened();
  EXPECT_EQ(Servers::all().size(), 1U);
}

TEST_F(MenuTest, OpensAServersWebPage) {
  const auto id = joinServer();
  choose(menuActions::OpenServerInBrowser(id));
  choose(menuActions::OpenServerInBrowser("none"));
  EXPECT_EQ(desktop_.openedURLs, std::vector<std::string>{"http://100.64.0.7:8080"});
}

TEST_F(MenuTest, OpensTheWebPageOfTheFirstServer) {
  delegate_->openInBrowser();
  EXPECT_TRUE(desktop_.openedURLs.empty());
  joinServer("100.64.0.7:80");
  delegate_->openInBrowser();
  EXPECT_EQ(desktop_.openedURLs, std::vector<std::string>{"http://100.64.0.7:80"});
}

TEST_F(MenuTest, ConnectsAServerThatWasDisabled) {
  const auto id = joinServer();
  delegate_->setServerEnabled(id, false);
  choose(menuActions::ConnectServer(id));
  EXPECT_TRUE(Servers::all()[0].enabled);
}

TEST_F(MenuTest, AsksForAnInviteKeyAndSaysWhyItDidNotWork) {
  std::filesystem::remove_all(world_.source());
  choose(menuActions::RedeemInvite());
  ASSERT_EQ(dialogs_.alerts().size(), 1U);
  EXPECT_EQ(dialogs_.alerts()[0].messageText, "Join the Zephyl Tailnet");
  dialogs_.press("Join", "inv_v2_nonsense");
  ASSERT_EQ(dialogs_.alerts().size(), 1U);
  EXPECT_EQ(dialogs_.alerts()[0].messageText, "That invite key didn't work");
  EXPECT_EQ(dialogs_.alerts()[0].informativeText, "That doesn't look like a Zephyl invite key.");
  dialogs_.press("OK");
  EXPECT_TRUE(dialogs_.alerts().empty());
}

TEST_F(MenuTest, AsksForAnInviteKeyItselfWhereTheWorkingDirectoryIsNoSourceTree) {
  const auto activated = activations();
  const auto before = std::filesystem::current_path();
  std::filesystem::current_path(world_.directory().path());
  const test::ScopedVariable root("ZEPHYL_REPO_ROOT", "");
  choose(menuActions::RedeemInvite());
  std::filesystem::current_path(before);
  ASSERT_EQ(dialogs_.alerts().size(), 1U);
  EXPECT_EQ(dialogs_.alerts()[0].messageText, "Join the Zephyl Tailnet");
  EXPECT_EQ(activations(), activated);
}

TEST_F(MenuTest, JoinBringsThePromptThatIsOpenToTheFront) {
  std::filesystem::remove_all(world_.source());
  choose(menuActions::RedeemInvite());
  EXPECT_TRUE(dialogs_.alerts().at(0).requestedByUser);
  choose(menuActions::RedeemInvite());
  ASSERT_EQ(dialogs_.alerts().size(), 1U);
  EXPECT_EQ(dialogs_.timesBroughtToFront(), 1);
  dialogs_.press("Cancel");
  choose(menuActions::RedeemInvite());
  EXPECT_EQ(dialogs_.timesBroughtToFront(), 0);
}

TEST_F(MenuTest, JoinsWithAGoodKeyAndWithNoneWhenCancelled) {
  std::filesystem::remove_all(world_.source());
  choose(menuActions::RedeemInvite());
  dialogs_.press("Cancel", "inv_v2_" + std::string(32, 'a') + "_one");
  EXPECT_TRUE(Servers::all().empty());
  choose(menuActions::RedeemInvite());
  dialogs_.press("Join", "inv_v2_" + std::string(32, 'a') + "_one");
  EXPECT_EQ(Servers::all().size(), 1U);
  EXPECT_TRUE(dialogs_.alerts().empty());
}

TEST_F(MenuTest, ALogWindowTakesThePlaceOfTheOneThatIsOpen) {
  joinServer();
  choose(menuActions::ShowTailnetLogs());
  ASSERT_EQ(dialogs_.logWindows().size(), 1U);
  EXPECT_EQ(dialogs_.logWindows()[0].title, "Tailnet Logs");
  EXPECT_EQ(dialogs_.logWindows()[0].message, "");
  EXPECT_TRUE(dialogs_.logWindows()[0].requestedByUser);
  dialogs_.tellLogWindow(LogWindowEvent::closed);
  EXPECT_TRUE(dialogs_.logWindows().empty());
}

TEST_F(MenuTest, WritesTheWholeLogToAPrivateFileAndOpensIt) {
  dialogs_.tellLogWindow(LogWindowEvent::openInVSCode);
  ASSERT_EQ(desktop_.openedFiles.size(), 1U);
  const auto& [path, editor] = desktop_.openedFiles[0];
  EXPECT_EQ(editor, Editor::vsCode);
  EXPECT_TRUE(path.starts_with(world_.directory() / "zephyl-agent-log-")) << path;
  std::stringstream text;
  text << std::ifstream(path).rdbuf();
  EXPECT_EQ(text.str(), dialogs_.logWindows()[0].fullText);
  EXPECT_EQ(std::filesystem::status(path).permissions(),
            std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
}

TEST_F(MenuTest, ControlCharactersOfALogAreVisibleOnTheClipboardAndInTheFile) {
  delegate_->redeem("inv_v2_" + std::string(32, 'a') + "_one");
  runtime_.advance(2s);
  runtime_.launcher.newest()->print({"\x1b]0;title\x07 and \u202E"});
  runtime_.settle();
  choose(menuActions::ShowTailnetLogs());
  const auto copied = dialogs_.logWindows().at(0).fullText;
  EXPECT_NE(copied.find("␛]0;title␇ and \\u202e"), std::string::npos) << copied;
  EXPECT_EQ(copied.find('\x1b'), std::string::npos);
  dialogs_.tellLogWindow(LogWindowEvent::openInCursor);
  std::stringstream text;
  text << std::ifstream(desktop_.openedFiles.at(0).first).rdbuf();
  EXPECT_EQ(text.str(), copied);
}

TEST_F(MenuTest, NeverWritesALogThroughALinkThatSomebodyPlaced) {
  dialogs_.tellLogWindow(LogWindowEvent::openInCursor);
  const auto path = desktop_.openedFiles.at(0).first;
  const auto victim = world_.directory().write("victim", "precious");
  std::filesystem::remove(path);
  std::filesystem::create_symlink(victim, path);
  dialogs_.tellLogWindow(LogWindowEvent::openInTextEdit);
  EXPECT_EQ(desktop_.openedFiles.at(1).first, path);
  EXPECT_FALSE(std::filesystem::is_symlink(path));
  std::stringstream text;
  text << std::ifstream(victim).rdbuf();
  EXPECT_EQ(text.str(), "precious");
}

}  // namespace
}  // namespace zephyl
