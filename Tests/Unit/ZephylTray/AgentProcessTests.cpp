#include "ZephylTray/Agent/AgentProcess.hpp"

#include <filesystem>

#include <gtest/gtest.h>

#include "Support/TestRuntime.hpp"
#include "Support/TrayWorld.hpp"
#include "System/Files/Bundle.hpp"
#include "ZephylTray/Agent/AgentLaunch.hpp"
#include "ZephylTray/Registry/Servers.hpp"

namespace zephyl {
namespace {

using namespace std::chrono_literals;

constexpr auto noExecutable =
    "No Rust agent binary found. Build it with `cargo build --release -p zephyl-agent` (dev "
    "checkout) or reinstall the packaged app.";

class AgentProcessTest : public ::testing::Test {
 protected:
  AgentProcessTest() {
    agent_->onStateChange = [this] { ++stateChanges_; };
    agent_->onNonZeroExit = [this](int status, std::vector<std::string> log) {
      exits_.emplace_back(status, std::move(log));
    };
    agent_->onLaunchFailure = [this](std::string message) {
      failures_.push_back(std::move(message));
    };
  }

  void settle() { runtime_.settle(); }
  void advance(Duration step) { runtime_.advance(step); }

  test::FakeChild& child() { return *runtime_.launcher.newest(); }
  std::size_t launches() { return runtime_.launcher.children().size(); }

  test::TrayWorld world_;
  test::ScopedVariable port_{"AGENT_TRAY_PORT", "9123"};
  test::TestRuntime runtime_;
  std::shared_ptr<AgentProcess> agent_ = std::make_shared<AgentProcess>(runtime_.runtime());
  int stateChanges_ = 0;
  std::vector<std::pair<int, std::vector<std::string>>> exits_;
  std::vector<std::string> failures_;
};

TEST_F(AgentProcessTest, LaunchesTheAgentThroughAShellThatFreesItsPort) {
  const auto agent = world_.addAgent();
  agent_->start();
  EXPECT_EQ(child().options().arguments,
            (std::vector<std::string>{
                "-c", "cd '" + world_.source() +
                          "' && { lsof -ti tcp:9123 -sTCP:LISTEN | xargs kill 2>/dev/null; sleep "
                          "0.2; }; exec '" +
                          agent + "'"}));
  EXPECT_TRUE(child().options().executable == "/bin/zsh" ||
              child().options().executable == "/bin/sh");
  EXPECT_TRUE(agent_->isRunning());
  EXPECT_TRUE(agent_->isManaged());
  settle();
  EXPECT_EQ(stateChanges_, 1);
}

TEST_F(AgentProcessTest, QuotesASingleQuoteForTheShell) {
  const auto root = world_.directory() / "it's";
  const auto agent = world_.directory().write("it's/target/release/zephyl-agent", "", true);
  const test::ScopedVariable repoRoot("ZEPHYL_REPO_ROOT", root);
  agent_->start();
  const auto command = child().options().arguments.at(1);
  EXPECT_TRUE(command.starts_with("cd '" + (world_.directory() / "it") + R"('\''s' && )"))
      << command;
}

TEST_F(AgentProcessTest, FindsAnAgentBelowARelativeRoot) {
  const auto agent = world_.addAgent();
  const auto before = std::filesystem::current_path();
  std::filesystem::current_path(world_.directory().path());
  const test::ScopedVariable repoRoot("ZEPHYL_REPO_ROOT", "source");
  agent_->start();
  std::filesystem::current_path(before);
  const auto command = child().options().arguments.at(1);
  EXPECT_TRUE(command.starts_with("cd 'source' && ")) << command;
  EXPECT_TRUE(command.ends_with("; exec '" + agent + "'")) << command;
}

TEST_F(AgentProcessTest, StartingARunningAgentOnlyReportsAStateChange) {
  world_.addAgent();
  agent_->start();
  agent_->start();
  settle();
  EXPECT_EQ(launches(), 1U);
  EXPECT_EQ(stateChanges_, 2);
}

TEST_F(AgentProcessTest, ReportsAMissingExecutable) {
  agent_->start();
  settle();
  EXPECT_EQ(failures_, std::vector<std::string>{noExecutable});
  EXPECT_EQ(agent_->recentLog(), std::vector<std::string>{std::string("[tray] ") + noExecutable});
  EXPECT_FALSE(agent_->isRunning());
  EXPECT_EQ(stateChanges_, 1);
}

TEST_F(AgentProcessTest, ReportsWhyALaunchFailed) {
  world_.addAgent();
  runtime_.launcher.failWith("/bin/zsh: No such file or directory");
  agent_->start();
  settle();
  EXPECT_EQ(failures_, std::vector<std::string>{"/bin/zsh: No such file or directory"});
  EXPECT_EQ(agent_->recentLog().back(),
            "[tray] failed to start agent: /bin/zsh: No such file or directory");
  EXPECT_FALSE(agent_->isManaged());
}

TEST_F(AgentProcessTest, KeepsTheNewest200LinesOfTheOutput) {
  world_.addAgent();
  agent_->start();
  for (int i = 1; i <= 250; ++i) child().print({std::to_string(i)});
  const auto log = agent_->recentLog();
  ASSERT_EQ(log.size(), 200U);
  EXPECT_EQ(log.front(), "51");
  EXPECT_EQ(log.back(), "250");
}

TEST_F(AgentProcessTest, AppendsTheNonEmptyLinesOfAText) {
  agent_->appendLog("a\n\nb");
  EXPECT_EQ(agent_->recentLog(), (std::vector<std::string>{"a", "b"}));
}

TEST_F(AgentProcessTest, ReportsANormalExitWithAStatusAndKeepsTheLogForTheNextRun) {
  world_.addAgent();
  agent_->start();
  child().print({"out of memory"});
  child().exit({ExitStatus::Reason::exited, 3});
  settle();
  ASSERT_EQ(exits_.size(), 1U);
  EXPECT_EQ(exits_[0], std::pair(3, std::vector<std::string>{"out of memory"}));
  EXPECT_EQ(stateChanges_, 2);
  EXPECT_FALSE(agent_->isRunning());
  EXPECT_FALSE(agent_->isManaged());
  agent_->start();
  child().print({"again"});
  EXPECT_EQ(agent_->recentLog(), (std::vector<std::string>{"out of memory", "again"}));
}

TEST_F(AgentProcessTest, AnEndBySignalOrWithStatusZeroIsAStateChangeOnly) {
  world_.addAgent();
  for (const ExitStatus status :
       {ExitStatus{ExitStatus::Reason::signalled, 11}, ExitStatus{ExitStatus::Reason::exited, 0}}) {
    agent_->start();
    settle();
    stateChanges_ = 0;
    child().exit(status);
    settle();
    EXPECT_EQ(stateChanges_, 1);
    EXPECT_TRUE(exits_.empty());
  }
}

TEST_F(AgentProcessTest, ARequestedExitIsNoFailureWhateverItsStatus) {
  world_.addAgent();
  agent_->start();
  child().ignoreTermination();
  agent_->stop();
  EXPECT_EQ(child().terminateRequests(), 1);
  EXPECT_TRUE(agent_->isRunning());
  child().exit({ExitStatus::Reason::exited, 143});
  settle();
  EXPECT_TRUE(exits_.empty());
  EXPECT_FALSE(agent_->isRunning());
}

TEST_F(AgentProcessTest, RestartsAfter600Milliseconds) {
  world_.addAgent();
  agent_->start();
  agent_->restart();
  advance(599ms);
  EXPECT_EQ(launches(), 1U);
  advance(1ms);
  EXPECT_EQ(launches(), 2U);
  EXPECT_TRUE(agent_->isRunning());
  EXPECT_EQ(stateChanges_, 3);  // started, ended, started
}

TEST_F(AgentProcessTest, ARestartWithoutAChildStartsOne) {
  world_.addAgent();
  agent_->restart();
  advance(600ms);
  EXPECT_EQ(launches(), 1U);
}

TEST_F(AgentProcessTest, ARestartWaitsForTheOldChildToEnd) {
  world_.addAgent();
  agent_->start();
  const auto old = runtime_.launcher.newest();
  old->ignoreTermination();
  agent_->restart();
  advance(2s);
  EXPECT_EQ(launches(), 1U);
  old->exit({ExitStatus::Reason::exited, 1});
  settle();
  EXPECT_EQ(launches(), 2U);
  EXPECT_TRUE(exits_.empty());
}

TEST_F(AgentProcessTest, ARestartKillsAChildThatRunsAfterThreeSeconds) {
  world_.addAgent();
  agent_->start();
  const auto old = runtime_.launcher.newest();
  old->ignoreTermination();
  agent_->restart();
  advance(2999ms);
  EXPECT_TRUE(old->isRunning());
  advance(1ms);
  EXPECT_FALSE(old->isRunning());
  EXPECT_EQ(launches(), 2U);
  EXPECT_EQ(agent_->recentLog().back(),
            "[tray] " + std::to_string(old->pid()) + " ignored SIGTERM; killing it");
}

TEST_F(AgentProcessTest, RepeatedRestartsLaunchOneAgent) {
  world_.addAgent();
  agent_->start();
  agent_->restart();
  advance(300ms);
  agent_->restart();
  advance(10s);
  EXPECT_EQ(launches(), 2U);
  EXPECT_TRUE(agent_->isRunning());
}

TEST_F(AgentProcessTest, StoppingCancelsAPendingRestart) {
  world_.addAgent();
  agent_->start();
  agent_->restart();
  agent_->stop();
  advance(10s);
  EXPECT_EQ(launches(), 1U);
}

TEST_F(AgentProcessTest, DelayedTasksAndChildrenMayOutliveIt) {
  world_.addAgent();
  agent_->start();
  const auto orphan = runtime_.launcher.newest();
  agent_->restart();
  runtime_.settle();
  agent_.reset();
  orphan->print({"late"});
  orphan->exit({ExitStatus::Reason::exited, 1});
  advance(10s);
  EXPECT_EQ(launches(), 1U);
}

// The agent's environment

TEST_F(AgentProcessTest, WithoutServersInheritedServerVariablesAreRemoved) {
  world_.addAgent();
  const test::ScopedVariable servers("ZEPHYL_SERVERS", "[1]");
  const test::ScopedVariable url("ZEPHYL_SERVER_URL", "ws://x");
  const test::ScopedVariable socks("ZEPHYL_SOCKS5", "127.0.0.1:1");
  const test::ScopedVariable standalone("ZEPHYL_STANDALONE", "1");
  const test::ScopedVariable cache("ZEPHYL_MODEL_CACHE_DIR", "/x");
  const test::ScopedVariable other("ZEPHYL_TEST_KEPT", "yes");
  agent_->start();
  const auto& environment = child().options().environment;
  for (const auto* name : {"ZEPHYL_SERVERS", "ZEPHYL_SERVER_URL", "ZEPHYL_SOCKS5",
                           "ZEPHYL_STANDALONE", "ZEPHYL_MODEL_CACHE_DIR"}) {
    EXPECT_FALSE(environment.contains(name)) << name;
  }
  EXPECT_EQ(environment.at("ZEPHYL_TEST_KEPT"), "yes");
}

ServerEntry server(std::optional<std::string> address, std::optional<std::string> fingerprint) {
  return {
      .id = "11111111-0000-4000-8000-000000000000",
      .label = "Lab",
      .address = std::move(address),
      .tailnetFingerprint = std::move(fingerprint),
      .agentId = "agent-1",
      .ports = {.socks = 1055, .shim = 8800, .tunnelHost = "127.100.0.1", .tunnelFallback = 8080},
      .enabled = true};
}

TEST_F(AgentProcessTest, TheAgentGetsTheEnabledServers) {
  world_.addAgent();
  world_.addProgram("packages/tailnet-client/tailscaled");
  world_.addProgram("packages/tailnet-client/zephyl-tailnet");
  auto disabled = server("http://off", "f");
  disabled.enabled = false;
  Servers::replaceAll({disabled, server("https://srv:8443", "abc"), server("http://b", "")});
  agent_->start();
  const auto& environment = child().options().environment;
  EXPECT_EQ(environment.at("ZEPHYL_SERVER_URL"), "wss://srv:8443/agent");
  EXPECT_EQ(environment.at("ZEPHYL_SOCKS5"), "127.0.0.1:1055");
  EXPECT_EQ(
      environment.at("ZEPHYL_SERVERS"),
      R"([{"url":"wss://srv:8443/agent","label":"Lab","socks5":"127.0.0.1:1055","agentId":"agent-1"},)"
      R"({"url":"ws://b/agent","label":"Lab","agentId":"agent-1"}])");
}

TEST_F(AgentProcessTest, TheLegacyAddressIsThatOfTheFirstServer) {
  world_.addAgent();
  const test::ScopedVariable url("ZEPHYL_SERVER_URL", "ws://x");
  Servers::replaceAll({server(std::nullopt, "abc"), server("http://b", "")});
  agent_->start();
  const auto& environment = child().options().environment;
  EXPECT_FALSE(environment.contains("ZEPHYL_SERVER_URL"));
  EXPECT_EQ(environment.at("ZEPHYL_SERVERS"),
            R"([{"url":"ws://b/agent","label":"Lab","agentId":"agent-1"}])");
}

TEST_F(AgentProcessTest, EveryAgentOfARunGetsThePortFromTheStart) {
  world_.addAgent();
  for (const char* setting : {"{}", R"({"trayPort": 9124})"}) {
    world_.directory().write("config/com.zephyl.tray/defaults.json", setting);
    agent_->start();
    EXPECT_EQ(child().options().environment.at("AGENT_TRAY_PORT"), "9123");
    EXPECT_NE(child().options().arguments.at(1).find("tcp:9123 "), std::string::npos);
    child().exit({});
    settle();
  }
}

TEST_F(AgentProcessTest, TheAgentGetsTheDefaultPort) {
  world_.addAgent();
  const test::ScopedVariable unset("AGENT_TRAY_PORT");
  agent_ = std::make_shared<AgentProcess>(runtime_.runtime());
  agent_->start();
  EXPECT_EQ(child().options().environment.at("AGENT_TRAY_PORT"), "8799");
}

TEST_F(AgentProcessTest, TheAgentGetsThePortInCanonicalForm) {
  world_.addAgent();
  const test::ScopedVariable written("AGENT_TRAY_PORT", "+09125");
  agent_ = std::make_shared<AgentProcess>(runtime_.runtime());
  agent_->start();
  EXPECT_EQ(child().options().environment.at("AGENT_TRAY_PORT"), "9125");
}

/// Installed as a package, with an agent of its own.
class PackagedAgentTest : public AgentProcessTest {
 protected:
  PackagedAgentTest() {
    world_.addAgent();
    world_.directory().write("prefix/share/zephyl-tray/agent/zephyl-agent", "", true);
    Bundle::setMain(Bundle(world_.directory() / "prefix/bin/zephyl-tray"));
  }
  ~PackagedAgentTest() override { Bundle::setMain(Bundle(std::nullopt)); }
  PackagedAgentTest(const PackagedAgentTest&) = delete;
  PackagedAgentTest& operator=(const PackagedAgentTest&) = delete;

  const std::string runtimeDirectory_ = world_.directory() / "prefix/share/zephyl-tray/agent";
  test::ScopedVariable standalone_{"ZEPHYL_STANDALONE", "0"};
  test::ScopedVariable cache_{"ZEPHYL_MODEL_CACHE_DIR", "/x"};
};

TEST_F(PackagedAgentTest, IsPreferredToADevelopersBuildAndRunsInItsDirectory) {
  agent_->start();
  const auto command = child().options().arguments.at(1);
  EXPECT_TRUE(command.starts_with("cd '" + runtimeDirectory_ + "' && ")) << command;
  EXPECT_TRUE(command.ends_with("; exec '" + runtimeDirectory_ + "/zephyl-agent'")) << command;
  EXPECT_EQ(child().options().environment.at("ZEPHYL_STANDALONE"), "1");
}

TEST_F(PackagedAgentTest, GetsTheModelCacheOnlyIfItExists) {
  agent_->start();
  EXPECT_FALSE(child().options().environment.contains("ZEPHYL_MODEL_CACHE_DIR"));
  child().exit({});
  settle();
  world_.directory().write("prefix/share/zephyl-tray/agent/model-cache", "");
  agent_->start();
  EXPECT_EQ(child().options().environment.at("ZEPHYL_MODEL_CACHE_DIR"),
            runtimeDirectory_ + "/model-cache");
}

TEST_F(AgentProcessTest, WithoutTheTailnetProgramsThereIsNoProxy) {
  world_.addAgent();
  Servers::replaceAll({server("http://a", "abc")});
  agent_->start();
  EXPECT_FALSE(child().options().environment.contains("ZEPHYL_SOCKS5"));
}

TEST(AgentServersJSON, SkipsServersThatHaveNoAddress) {
  EXPECT_EQ(AgentLaunch::serversJSON({}), std::nullopt);
  EXPECT_EQ(AgentLaunch::serversJSON({server("srv", "f"), server(std::nullopt, "f")}),
            std::nullopt);
  auto anonymous = server("ftp://srv", std::nullopt);
  anonymous.agentId = "";
  EXPECT_EQ(AgentLaunch::serversJSON({server(std::nullopt, "f"), anonymous}),
            R"([{"url":"ws://srv/agent","label":"Lab"}])");
}

}  // namespace
}  // namespace zephyl
