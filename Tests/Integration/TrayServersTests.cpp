#include <filesystem>
#include <ranges>

#include "Integration/TrayFixture.hpp"
#include "System/Files/Shell.hpp"
#include "System/Files/UserDefaults.hpp"
#include "ZephylTray/Config/Config.hpp"

namespace zephyl {
namespace {

using namespace std::chrono_literals;

/// Joining, changing and removing servers, with the tray's real registry and settings.
class TrayServers : public test::TrayFixture {
 protected:
  TrayServers() {
    addTailnetPrograms();
    world_.addAgent();
    launch();
    runtime_.runUntil([&] { return launched(loginShell()) == 1; });  // the agent
  }

  json::Value join(char fingerprint = 'a') {
    return invite("inv_v2_" + std::string(32, fingerprint) + "_one");
  }
  json::Value change(const std::string& id, const std::string& setting, json::Value value) {
    return ask("POST /servers/" + id + "/" + setting,
               json::compact(json::Object{{setting, std::move(value)}}));
  }
  static std::string firstId() { return Servers::all()[0].id; }
  static std::optional<std::string> enrolment() {
    return Config::defaults().string("tailnetFingerprint");
  }
  const ProcessOptions& newestClient() {
    for (const auto& child : runtime_.launcher.children() | std::views::reverse) {
      if (child->options().executable.ends_with("zephyl-tailnet")) return child->options();
    }
    throw std::logic_error("no client was launched");
  }

  /// Makes later saves of the registry fail.
  void breakRegistry() {
    std::filesystem::remove(registry_);
    std::filesystem::create_directories(registry_);
  }

  const std::string fingerprint_ = std::string(32, 'a');
  const std::string registry_ = world_.baseDirectory() + "/servers.json";
  const std::string reason_ = registry_ + ": Is a directory";
  const json::Value unchanged_ =
      error("The change could not be saved, so nothing was changed: " + reason_);
};

TEST_F(TrayServers, JoiningRegistersTheServerEnrolsItAndRestartsTheAgent) {
  EXPECT_EQ(join('A'), ok_);
  ASSERT_EQ(Servers::all().size(), 1U);
  EXPECT_EQ(Servers::all()[0].tailnetFingerprint, fingerprint_);
  EXPECT_EQ(enrolment(), fingerprint_);
  runtime_.advance(2s);
  EXPECT_EQ(newestClient().environment.at("ZEPHYL_PREAUTH_KEY"), "hskey-auth-one");
  EXPECT_EQ(launched(loginShell()), 2U);
}

TEST_F(TrayServers, ASecondKeyForAKnownServerReplacesItsTailnetAndKeepsItsEntry) {
  join();
  Servers::update(firstId(), [](ServerEntry& entry) {
    entry.label = "Lab";
    entry.address = "http://lab";
    entry.enabled = false;
  });
  runtime_.advance(2s);
  EXPECT_EQ(invite("\tinv1_" + std::string(32, 'A') + "_two "), ok_);
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

TEST_F(TrayServers, AServerThatCannotBeSavedIsNotJoined) {
  breakRegistry();
  EXPECT_EQ(join(),
            error("The server could not be saved, so the invite key was not used: " + reason_));
  runtime_.advance(2s);
  EXPECT_TRUE(Servers::all().empty());
  EXPECT_EQ(enrolment(), std::nullopt);
  EXPECT_EQ(launched("tailscaled"), 0U);
  EXPECT_EQ(launched(loginShell()), 1U) << "the agent is not restarted";
}

TEST_F(TrayServers, ASettingThatCannotBeSavedIsReportedAsAFailure) {
  const auto id = Servers::add("", "http://lab", std::nullopt)->id;
  breakRegistry();
  EXPECT_EQ(change(id, "label", "Lab"), unchanged_);
  EXPECT_EQ(change(id, "accent", "#336699"), unchanged_);
  EXPECT_EQ(change(id, "enabled", false), unchanged_);
  runtime_.advance(2s);
  EXPECT_EQ(Servers::all()[0].label, "");
  EXPECT_EQ(Servers::all()[0].accent, std::nullopt);
  EXPECT_TRUE(Servers::all()[0].enabled);
  EXPECT_EQ(launched(loginShell()), 1U) << "the agent is not restarted";
}

TEST_F(TrayServers, AServerThatCannotBeRemovedKeepsRunning) {
  join();
  runtime_.advance(2s);
  ASSERT_EQ(running("zephyl-tailnet"), 1U);
  breakRegistry();
  EXPECT_EQ(ask("DELETE /servers/" + firstId()), unchanged_);
  runtime_.advance(2s);
  EXPECT_EQ(Servers::all().size(), 1U);
  EXPECT_EQ(running("zephyl-tailnet"), 1U);
  EXPECT_EQ(enrolment(), fingerprint_);
}

TEST_F(TrayServers, DisablingAServerEndsItsTailnetAndRestartsTheAgent) {
  join();
  runtime_.advance(2s);
  const auto id = firstId();
  const auto launches = launched(loginShell());
  EXPECT_EQ(change(id, "enabled", false), ok_);
  runtime_.advance(2s);
  EXPECT_FALSE(Servers::all()[0].enabled);
  EXPECT_EQ(running("zephyl-tailnet"), 0U);
  EXPECT_EQ(launched(loginShell()), launches + 1);
  choose(menuActions::ConnectServer(id));
  runtime_.advance(2s);
  EXPECT_TRUE(Servers::all()[0].enabled);
  EXPECT_EQ(running("zephyl-tailnet"), 1U);
}

TEST_F(TrayServers, RestartingATailnetRestartsThatOfEveryServer) {
  join('a');
  join('b');
  runtime_.advance(2s);
  ASSERT_EQ(running("tailscaled"), 2U);
  const auto before = launched("tailscaled");
  choose(menuActions::RestartTailnet());
  runtime_.advance(10s);
  EXPECT_EQ(launched("tailscaled"), before + 2);
  EXPECT_EQ(running("tailscaled"), 2U);
}

TEST_F(TrayServers, RemovingTheLastJoinedServerForgetsTheEnrolment) {
  join('a');
  join('b');
  runtime_.advance(2s);
  EXPECT_EQ(ask("DELETE /servers/" + firstId()), ok_);
  EXPECT_TRUE(enrolment());
  EXPECT_EQ(running("zephyl-tailnet"), 1U);
  EXPECT_EQ(ask("DELETE /servers/" + firstId()), ok_);
  EXPECT_FALSE(enrolment());
  EXPECT_EQ(running("zephyl-tailnet"), 0U);
  EXPECT_TRUE(Servers::all().empty());
}

TEST_F(TrayServers, TheMenuOpensTheScreensOfTheDesktopApp) {
  const auto id = joinServer();
  ask("GET /status");
  const auto screenOf = [&](TrayAction action) {
    choose(std::move(action));
    return std::string(ask("GET /status").at("request").as_string());
  };
  EXPECT_EQ(screenOf(menuActions::RedeemInvite()), "join");
  EXPECT_EQ(screenOf(menuActions::RenameServer(id)), "servers/" + id + "/rename");
  EXPECT_EQ(screenOf(menuActions::RemoveServer(id)), "servers/" + id + "/remove");
  EXPECT_EQ(Servers::all().size(), 1U);
}

TEST_F(TrayServers, TheMenuOpensAServersWebPage) {
  const auto id = joinServer("100.64.0.7:8080");
  choose(menuActions::OpenServerInBrowser(id));
  choose(menuActions::OpenServerInBrowser("none"));
  EXPECT_EQ(desktop_.openedURLs, std::vector<std::string>{"http://100.64.0.7:8080"});
}

TEST_F(TrayServers, TheMenuShowsTheLogsOfTheTailnets) {
  join();
  runtime_.advance(2s);
  child("zephyl-tailnet")->print({"hello"});
  runtime_.settle();
  choose(menuActions::ShowTailnetLogs());
  ASSERT_EQ(dialogs_.logWindows().size(), 1U);
  EXPECT_EQ(dialogs_.logWindows()[0].title, "Tailnet Logs");
  EXPECT_EQ(dialogs_.logWindows()[0].message, "");
  EXPECT_TRUE(dialogs_.logWindows()[0].requestedByUser);
  EXPECT_NE(dialogs_.logWindows()[0].fullText.find("hello"), std::string::npos);
}

TEST_F(TrayServers, TheMenuIsNotRebuiltWhileItIsOpen) {
  const auto id = Servers::add("", "http://lab", std::nullopt)->id;
  desktop_.item.events.willOpen();
  const int before = desktop_.item.menusSet;
  EXPECT_EQ(change(id, "label", "Lab"), ok_);
  EXPECT_EQ(desktop_.item.menusSet, before);
  desktop_.item.events.didClose();
  desktop_.item.events.needsUpdate();
  EXPECT_EQ(desktop_.item.menusSet, before + 1);
}

TEST_F(TrayServers, TheMenuAsksForAnInviteKeyIfTheDesktopAppIsNotInstalled) {
  std::filesystem::remove_all(world_.source());
  const auto before = std::filesystem::current_path();
  std::filesystem::current_path(world_.directory().path());
  const test::ScopedVariable root("ZEPHYL_REPO_ROOT", "");
  choose(menuActions::RedeemInvite());
  std::filesystem::current_path(before);
  ASSERT_EQ(dialogs_.alerts().size(), 1U);
  EXPECT_EQ(dialogs_.alerts()[0].heading, "Join the Zephyl Tailnet");
  dialogs_.press("Join", "inv_v2_" + fingerprint_ + "_one");
  EXPECT_EQ(Servers::all().size(), 1U);
}

}  // namespace
}  // namespace zephyl
