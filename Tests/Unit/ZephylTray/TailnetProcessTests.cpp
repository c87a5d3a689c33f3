#include <algorithm>
#include <filesystem>

#include "Support/LogCapture.hpp"
#include "System/Files/Environment.hpp"
#include "System/Files/Files.hpp"
#include "TailnetProcessTest.hpp"

namespace zephyl {
namespace {

using namespace std::chrono_literals;

// Starting

TEST_F(TailnetProcessTest, LaunchesTheDaemonAndASecondLaterTheClient) {
  tailnet_->start();
  ASSERT_EQ(launches(), 1U);
  const auto state = world_.baseDirectory() + "/servers/" + joinedServerId + "/tailnet";
  const auto socket = world_.directory() / "home/.zephyl/run/01234567.sock";
  EXPECT_EQ(child(0).options().executable, daemon_);
  EXPECT_EQ(child(0).options().arguments,
            (std::vector<std::string>{"--tun=userspace-networking", "--port=0",
                                      "--socks5-server=127.0.0.1:1055", "--statedir=" + state,
                                      "--socket=" + socket}));
  advance(999ms);
  ASSERT_EQ(launches(), 1U);
  EXPECT_FALSE(tailnet_->isRunning());
  advance(1ms);
  ASSERT_EQ(launches(), 2U);
  EXPECT_EQ(child(1).options().executable, client_);
  EXPECT_EQ(child(1).options().arguments,
            (std::vector<std::string>{"--fingerprint", std::string(32, 'a'), "--socks5",
                                      "127.0.0.1:1055", "--state-dir", state, "--shim-listen",
                                      "127.0.0.1:8800", "--tunnel-listen", "127.100.0.3:80",
                                      "--tunnel-fallback", "127.0.0.1:8085"}));
  EXPECT_EQ(child(1).options().environment.at("ZEPHYL_TAILSCALED_SOCKET"), socket);
  EXPECT_FALSE(child(1).options().environment.contains("ZEPHYL_PREAUTH_KEY"));
  EXPECT_TRUE(tailnet_->isRunning());
}

TEST_F(TailnetProcessTest, PassesTheStoredAddressToTheClient) {
  auto server = joinedServer();
  server.address = " http://lab:5173 ";
  use(server);
  startBoth();
  const auto& arguments = client().options().arguments;
  EXPECT_EQ((std::vector(arguments.end() - 2, arguments.end())),
            (std::vector<std::string>{"--target", " http://lab:5173 "}));
  EXPECT_EQ(tailnet_->state().unresolvedTarget, std::nullopt);
}

TEST_F(TailnetProcessTest, ClearsAnUnresolvedTargetOnlyIfItPassesOne) {
  startBoth();
  print("TARGET UNRESOLVED: http://lab");
  tailnet_->restart();
  advance(2s);
  EXPECT_EQ(tailnet_->state().unresolvedTarget, "http://lab");

  auto server = joinedServer();
  server.address = "http://lab";
  use(server);
  startBoth();
  print("TARGET UNRESOLVED: http://lab");
  tailnet_->restart();
  advance(2s);
  EXPECT_EQ(tailnet_->state().unresolvedTarget, std::nullopt);
}

TEST_F(TailnetProcessTest, CreatesPrivateDirectories) {
  const auto socket = world_.directory().write("home/.zephyl/run/01234567.sock", "stale");
  tailnet_->start();
  EXPECT_FALSE(fileExists(socket));
  EXPECT_EQ(std::filesystem::status(Servers::tailnetStateDir(joinedServerId)).permissions(),
            std::filesystem::perms::owner_all);
}

TEST_F(TailnetProcessTest, ContinuesIfItsDirectoriesCannotBeCreated) {
  world_.directory().write("data/Zephyl/servers", "in the way");
  world_.directory().write("home/.zephyl", "in the way");
  startBoth();
  const auto state = world_.baseDirectory() + "/servers";
  const auto sockets = world_.directory() / "home/.zephyl";
  EXPECT_EQ(tailnet_->recentLog(),
            (std::vector<std::string>{
                "[tray] could not create tailnet state dir: " + state + ": Not a directory",
                "[tray] could not create socket dir: " + sockets + ": Not a directory"}));
}

TEST_F(TailnetProcessTest, TheDaemonGetsTheTraysOwnEnvironmentAndTheClientTheSocketAsWell) {
  startBoth();
  EXPECT_EQ(child(0).options().environment, currentEnvironment());
  auto more = currentEnvironment();
  more["ZEPHYL_TAILSCALED_SOCKET"] = Servers::controlSocketPath(joinedServerId);
  EXPECT_EQ(client().options().environment, more);
}

TEST_F(TailnetProcessTest, WithoutAnInviteItStaysIdleAndLogsWhy) {
  auto server = joinedServer();
  server.tailnetFingerprint = "";
  use(server);
  tailnet_->start();
  EXPECT_EQ(launches(), 0U);
  EXPECT_EQ(lastLine(), "[tray] no tailnet invite has been redeemed yet; not starting the tailnet");
}

TEST_F(TailnetProcessTest, WithoutAProgramItStaysIdle) {
  std::filesystem::remove(client_);
  tailnet_->start();
  EXPECT_EQ(launches(), 0U);
  EXPECT_FALSE(tailnet_->hasLog());
}

TEST_F(TailnetProcessTest, WarnsOfALongSocketPathAndContinues) {
  const std::string home = world_.directory() / "";
  const auto rest = std::string("/.zephyl/run/01234567.sock").size();
  {
    const test::ScopedVariable longest("HOME", home + std::string(103 - home.size() - rest, 'h'));
    tailnet_->start();
    EXPECT_FALSE(tailnet_->hasLog());
    tailnet_->stop();
  }
  const test::ScopedVariable tooLong("HOME", home + std::string(104 - home.size() - rest, 'h'));
  tailnet_->start();
  EXPECT_EQ(launches(), 2U);
  EXPECT_EQ(
      lastLine(),
      "[tray] socket path is 104 bytes; macOS caps it at 104. tailscaled will fail to bind: " +
          Servers::controlSocketPath(joinedServerId));
}

TEST_F(TailnetProcessTest, StartingARunningPairDoesNothing) {
  startBoth();
  tailnet_->start();
  advance(10s);
  EXPECT_EQ(launches(), 2U);
}

TEST_F(TailnetProcessTest, ADaemonThatEndsAtOncePreventsTheClientFromStarting) {
  tailnet_->start();
  child(0).exit({ExitStatus::Reason::exited, 1});
  settle();
  EXPECT_EQ(tailnet_->recentLog(),
            (std::vector<std::string>{"[tray] tailscaled exited with status 1",
                                      "[tray] retrying the tailnet in 2s (attempt 1/6)"}));
  advance(1s);
  EXPECT_EQ(lastLine(), "[tray] tailscaled did not stay up; not starting zephyl-tailnet");
  EXPECT_EQ(launches(), 1U);
  advance(1s);
  EXPECT_EQ(launches(), 2U);
}

TEST_F(TailnetProcessTest, AFailedLaunchIsRetried) {
  runtime_.launcher.failWith("no memory");
  tailnet_->start();
  EXPECT_EQ(tailnet_->recentLog(),
            (std::vector<std::string>{"[tray] failed to start tailscaled: no memory",
                                      "[tray] retrying the tailnet in 2s (attempt 1/6)"}));
  runtime_.launcher.failWith(std::nullopt);
  advance(2s);
  EXPECT_EQ(launches(), 1U);
  runtime_.launcher.failWith("no memory");
  advance(1s);
  EXPECT_EQ(lastLine(), "[tray] retrying the tailnet in 4s (attempt 2/6)");
  runtime_.launcher.failWith(std::nullopt);
  advance(5s);
  EXPECT_FALSE(child(0).isRunning());
  EXPECT_TRUE(tailnet_->isRunning());
}

// Failing and retrying

TEST_F(TailnetProcessTest, EndsTheOtherChildAndRetriesWhenOneEnds) {
  startBoth();
  client().exit({ExitStatus::Reason::signalled, 11});
  settle();
  EXPECT_FALSE(child(0).isRunning());
  settle();
  EXPECT_EQ(tailnet_->recentLog(),
            (std::vector<std::string>{"[tray] zephyl-tailnet terminated",
                                      "[tray] retrying the tailnet in 2s (attempt 1/6)",
                                      "[tray] tailscaled terminated"}));
  EXPECT_EQ(tailnet_->state().failureCount, 1);
  advance(3s);
  EXPECT_TRUE(tailnet_->isRunning());
}

TEST_F(TailnetProcessTest, APairWhoseChildrenEndTogetherCountsAsOneFailure) {
  startBoth();
  const auto daemon = runtime_.launcher.children()[0];
  client().exit({ExitStatus::Reason::exited, 1});
  daemon->exit({ExitStatus::Reason::exited, 1});
  settle();
  EXPECT_EQ(tailnet_->state().failureCount, 1);
}

TEST_F(TailnetProcessTest, RetriesWithGrowingDelaysUpToFiveMinutes) {
  tailnet_->start();
  for (const auto pause : {2s, 4s, 8s, 16s, 32s, 60s, 300s, 300s}) {
    client().exit({ExitStatus::Reason::exited, 1});
    settle();
    const auto before = launches();
    advance(pause - 1ms);
    ASSERT_EQ(launches(), before) << pause.count();
    advance(1ms);
    ASSERT_EQ(launches(), before + 1) << pause.count();
  }
  EXPECT_EQ(tailnet_->state().stalledReason, "Not connecting — retrying every 5 min");
  EXPECT_EQ(tailnet_->state().failureCount, 8);
  const auto log = tailnet_->recentLog();
  for (const auto* line :
       {"[tray] retrying the tailnet in 60s (attempt 6/6)",
        "[tray] still cannot start the tailnet after 7 attempts; trying again in 5m",
        "[tray] still cannot start the tailnet after 8 attempts; trying again in 5m"}) {
    EXPECT_NE(std::ranges::find(log, line), log.end()) << line;
  }
}

TEST_F(TailnetProcessTest, AStartResetsFailuresAndReplacesTheRetry) {
  tailnet_->start();
  for (int i = 0; i < 7; ++i) {
    client().exit({ExitStatus::Reason::exited, 1});
    settle();
    if (i < 6) advance(60s);
  }
  ASSERT_TRUE(tailnet_->state().stalledReason);
  tailnet_->start();
  EXPECT_EQ(tailnet_->state().failureCount, 0);
  EXPECT_EQ(tailnet_->state().stalledReason, std::nullopt);
  const auto before = launches();
  advance(1s);
  EXPECT_TRUE(tailnet_->isRunning());
  advance(600s);
  EXPECT_EQ(launches(), before + 1);
}

TEST_F(TailnetProcessTest, ATunnelResetsFailures) {
  tailnet_->start();
  client().exit({ExitStatus::Reason::exited, 1});
  advance(3s);
  EXPECT_EQ(tailnet_->state().failureCount, 1);
  print("data tunnel on http://127.100.0.3:80");
  EXPECT_EQ(tailnet_->state().failureCount, 0);
  EXPECT_EQ(tailnet_->state().boundAddress, "127.100.0.3:80");
}

// Stopping

TEST_F(TailnetProcessTest, StoppingEndsTheClientThenTheDaemonAndNothingIsRetried) {
  startBoth();
  print("data tunnel on http://127.100.0.3:80");
  print("verified control plane via relay-1");
  tailnet_->stop();
  settle();
  EXPECT_FALSE(child(0).isRunning());
  EXPECT_FALSE(child(1).isRunning());
  EXPECT_EQ(tailnet_->state(), TailnetState{});
  const auto log = tailnet_->recentLog();
  EXPECT_EQ((std::vector(log.end() - 2, log.end())),
            (std::vector<std::string>{"[tray] zephyl-tailnet terminated",
                                      "[tray] tailscaled terminated"}));
  advance(600s);
  EXPECT_EQ(launches(), 2U);
}

TEST_F(TailnetProcessTest, ChildrenThatIgnoreTheRequestAreKilled) {
  startBoth();
  child(0).ignoreTermination();
  child(1).ignoreTermination();
  int ended = 0;
  tailnet_->stop([&] { ++ended; });
  EXPECT_FALSE(tailnet_->isRunning());
  advance(2999ms);
  EXPECT_TRUE(child(1).isRunning());
  advance(1ms);
  EXPECT_FALSE(child(1).isRunning());
  advance(2999ms);
  EXPECT_TRUE(child(0).isRunning()) << "its grace period began when the client had ended";
  EXPECT_EQ(ended, 0);
  advance(1ms);
  EXPECT_FALSE(child(0).isRunning());
  EXPECT_EQ(ended, 1);
  EXPECT_EQ(tailnet_->recentLog(),
            (std::vector<std::string>{
                "[tray] 1001 ignored SIGTERM; killing it", "[tray] zephyl-tailnet terminated",
                "[tray] 1000 ignored SIGTERM; killing it", "[tray] tailscaled terminated"}));
}

TEST_F(TailnetProcessTest, AStartWhileThePairEndsWaitsForItsEnd) {
  startBoth();
  child(0).ignoreTermination();
  tailnet_->stop();
  tailnet_->start();
  advance(2999ms);
  EXPECT_EQ(launches(), 2U);
  advance(1ms);
  EXPECT_EQ(launches(), 3U);
  advance(1s);
  EXPECT_TRUE(tailnet_->isRunning());
}

TEST_F(TailnetProcessTest, AStopWhileThePairEndsCancelsARestart) {
  startBoth();
  child(0).ignoreTermination();
  tailnet_->restart();
  advance(1s);
  int ended = 0;
  tailnet_->stop([&] { ++ended; });
  advance(600s);
  EXPECT_EQ(launches(), 2U);
  EXPECT_EQ(ended, 1);
  EXPECT_EQ(child(0).terminateRequests(), 1);
}

TEST_F(TailnetProcessTest, ARestartLaunches800MillisecondsAfterTheEnd) {
  startBoth();
  child(0).ignoreTermination();
  tailnet_->restart();
  advance(3s + 799ms);
  EXPECT_EQ(launches(), 2U);
  advance(1ms);
  EXPECT_EQ(launches(), 3U);
}

TEST_F(TailnetProcessTest, StoppingWithoutChildrenIsReported) {
  int ended = 0;
  tailnet_->stop([&] { ++ended; });
  EXPECT_EQ(ended, 0) << "never within the call";
  settle();
  EXPECT_EQ(ended, 1);
}

TEST_F(TailnetProcessTest, StoppingInTheFirstSecondPreventsTheClientFromStarting) {
  tailnet_->start();
  tailnet_->stop();
  advance(10s);
  EXPECT_EQ(launches(), 1U);
}

TEST_F(TailnetProcessTest, RestartingTakes800Milliseconds) {
  startBoth();
  tailnet_->restart();
  advance(799ms);
  EXPECT_EQ(launches(), 2U);
  advance(1ms);
  EXPECT_EQ(launches(), 3U);
  advance(1s);
  EXPECT_TRUE(tailnet_->isRunning());
  advance(600s);
  EXPECT_EQ(launches(), 4U);
}

TEST_F(TailnetProcessTest, RepeatedRestartsStartOnePair) {
  tailnet_->restart();
  advance(400ms);
  tailnet_->restart();
  advance(10s);
  EXPECT_EQ(launches(), 2U);
  EXPECT_TRUE(tailnet_->isRunning());
}

TEST_F(TailnetProcessTest, DelayedTasksAndChildrenMayOutliveIt) {
  startBoth();
  const auto children = runtime_.launcher.children();
  children[1]->exit({ExitStatus::Reason::exited, 1});
  settle();
  tailnet_.reset();
  children[0]->print({"late"});
  children[0]->exit({ExitStatus::Reason::exited, 1});
  advance(600s);
  EXPECT_EQ(launches(), 2U);
}

}  // namespace
}  // namespace zephyl
