#include "ZephylTray/Commands/Server/StatusReport.hpp"

#include <gtest/gtest.h>

namespace zephyl {
namespace {

using Strings = std::vector<std::string>;

/// A tray without problems, until a test adds one.
class StatusReport : public ::testing::Test {
 protected:
  StatusReport() {
    agent_.reachable = true;
    agent_.status.emplace();
    agent_.activity.emplace();
    agent_.roots.push_back({.root = "/home/ana/project", .name = "project"});
    tray_ = {.version = "1.2",
             .pid = 7,
             .mode = "desktop",
             .agentInstalled = true,
             .agentRunning = true,
             .agentPort = 8799,
             .resourceDirectory = "/usr/share/zephyl-tray",
             .tailnetProgramsInstalled = true,
             .windowInstalled = true,
             .controlListens = true};
    servers_.push_back({.id = "a1",
                        .name = "Patient Hill",
                        .state = "connected",
                        .enabled = true,
                        .usesTailnet = true});
  }

  [[nodiscard]] CommandStatus report() const {
    return statusReport({.tray = tray_,
                         .host = host_,
                         .known = known_,
                         .agent = agent_,
                         .tailnets = {.tailnets = 1, .usable = 1},
                         .servers = servers_});
  }
  /// Returns the codes of `attention`.
  [[nodiscard]] Strings attention() const { return codes(report().attention); }
  [[nodiscard]] Strings notes() const { return codes(report().notes); }
  static Strings codes(const std::vector<CommandNotice>& notices) {
    Strings codes;
    for (const auto& each : notices) codes.push_back(each.code);
    return codes;
  }

  TrayFacts tray_;
  TrayHost host_ = TrayHost::present;
  bool known_ = true;
  AgentSnapshot agent_;
  std::vector<CommandServerRecord> servers_;
};

TEST_F(StatusReport, ReportsThatNothingNeedsAttention) {
  const auto status = report();
  EXPECT_EQ(status.summary, "reachable, 1 folder, 1 of 1 server connected");
  EXPECT_EQ(status.folders, 1);
  EXPECT_EQ(status.connected, 1);
  EXPECT_EQ(status.trayHost, true);
  EXPECT_EQ(attention(), Strings{});
  EXPECT_EQ(notes(), Strings{});
}

TEST_F(StatusReport, ExplainsWhereToInstallAnAgent) {
  agent_ = {};
  tray_.agentInstalled = false;
  const auto notice = report().attention.at(0);
  EXPECT_EQ(notice.code, "agentNotInstalled");
  EXPECT_NE(notice.advice.find("/usr/share/zephyl-tray/agent/zephyl-agent"), std::string::npos);
  EXPECT_NE(notice.advice.find("ZEPHYL_REPO_ROOT"), std::string::npos);
  tray_.resourceDirectory.reset();
  EXPECT_EQ(report().attention.at(0).advice.find("/usr"), std::string::npos);
}

TEST_F(StatusReport, WaitsForTheFirstAnswerOfTheAgent) {
  agent_ = {};
  known_ = false;
  EXPECT_EQ(report().summary, "starting");
  EXPECT_EQ(attention(), Strings{});
  known_ = true;
  EXPECT_EQ(attention(), Strings{"agentNotReachable"});
  EXPECT_NE(report().attention[0].message.find("port 8799"), std::string::npos);
  tray_.agentRunning = false;
  EXPECT_EQ(report().attention[0].message, "The agent is not running.");
}

TEST_F(StatusReport, NamesServersThatAreNotConnected) {
  servers_[0].state = "disconnected";
  servers_[0].problem = "the key has expired";
  const auto notice = report().attention.at(0);
  EXPECT_EQ(notice.code, "serverNotConnected");
  EXPECT_EQ(notice.message, "Patient Hill is not connected: the key has expired");
  EXPECT_NE(notice.advice.find("zephyl-tray logs 'Patient Hill'"), std::string::npos);
  servers_[0].joinFailed = true;
  EXPECT_EQ(report().attention.at(0).message,
            "Patient Hill could not be joined: the key has expired");
  EXPECT_NE(report().attention.at(0).advice.find("new invite key"), std::string::npos);
  servers_[0].state = "starting";
  EXPECT_EQ(attention(), Strings{});
}

TEST_F(StatusReport, NamesMissingProgramsInsteadOfEachServer) {
  servers_[0].state = "disconnected";
  tray_.tailnetProgramsInstalled = false;
  EXPECT_EQ(attention(), Strings{"tailnetProgramsMissing"});
  servers_[0] = {.id = "a1", .state = "disabled", .usesTailnet = true};
  EXPECT_EQ(attention(), Strings{});
}

TEST_F(StatusReport, CountsRequestsAndNamesOtherFailures) {
  agent_.activity->pendingApprovals.push_back({.id = "r"});
  agent_.activity->model = ModelStatus{.phase = ModelPhase::failed, .error = "no\nspace"};
  tray_.controlListens = false;
  EXPECT_EQ(attention(), (Strings{"requestsWaiting", "modelFailed", "controlNotListening"}));
  EXPECT_EQ(report().requests, 1);
  EXPECT_EQ(report().attention[1].message.find('\n'), std::string::npos);
}

TEST_F(StatusReport, ExplainsAMissingIcon) {
  host_ = TrayHost::absent;
  EXPECT_EQ(attention(), Strings{"noTrayHost"});
  EXPECT_EQ(report().trayHost, false);
  host_ = TrayHost::noBus;
  EXPECT_EQ(attention(), Strings{});
  EXPECT_EQ(notes(), Strings{"noSessionBus"});
  for (const auto unknown : {TrayHost::unknown, TrayHost::notWanted}) {
    host_ = unknown;
    EXPECT_EQ(notes(), Strings{});
    EXPECT_EQ(report().trayHost, std::nullopt);
  }
}

TEST_F(StatusReport, NotesWhatIsMissingAndNotNeeded) {
  servers_.clear();
  tray_.windowInstalled = false;
  EXPECT_EQ(notes(), (Strings{"noServer", "windowNotInstalled"}));
  EXPECT_EQ(attention(), Strings{});
}

}  // namespace
}  // namespace zephyl
