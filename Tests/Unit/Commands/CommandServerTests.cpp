#include "ZephylTray/Commands/Server/CommandServer.hpp"

#include <gtest/gtest.h>

#include "Support/CommandPeer.hpp"
#include "Support/TemporaryDirectory.hpp"
#include "Support/TestRuntime.hpp"

namespace zephyl {
namespace {

using test::CommandPeer;
using Strings = std::vector<std::string>;

/// A server whose port records its calls.
class CommandServerTest : public ::testing::Test {
 protected:
  CommandServerTest() {
    agent_.reachable = true;
    agent_.activity.emplace();
    entries_ = {{.id = "5a7d", .label = "Hill", .enabled = true}};
  }
  ~CommandServerTest() override { server_->stop(); }
  CommandServerTest(const CommandServerTest&) = delete;
  CommandServerTest& operator=(const CommandServerTest&) = delete;

  CommandReports::Port reportsPort() {
    return {.tray =
                [] {
                  return TrayFacts{.version = "1", .agentInstalled = true, .controlListens = true};
                },
            .agent = [this]() -> const AgentSnapshot& { return agent_; },
            .agentKnown = [] { return true; },
            .servers = [this] { return ServerList(entries_); },
            .tailnet = [](const std::string&) { return std::optional<TailnetView>(); },
            .webAddressOf = [](const auto& bound) { return bound; }};
  }
  CommandServer::Port port() {
    return {.reports = reportsPort(),
            .diagnostics =
                [] {
                  return json::Object{{"tray", 1}};
                },
            .log = [this](const auto&, std::uint64_t position) { return log_.since(position); },
            .findTrayHost = nullptr,
            .decide =
                [this](const auto& id, const auto& decision, auto done) {
                  asked_.push_back(id + "=" + decision);
                  decided_ = std::move(done);
                },
            .join =
                [this](std::string_view key) {
                  asked_.push_back("join " + std::string(key));
                  return failure_;
                },
            .open =
                [this](const auto& screen) {
                  asked_.push_back("open " + screen.value_or("-"));
                  return failure_;
                },
            .restartAgent = [this] { asked_.emplace_back("restart agent"); },
            .restartTailnet =
                [this](const auto& id) {
                  asked_.push_back("restart " + id.value_or("all"));
                  return tailnets_;
                },
            .quit = [this] { asked_.emplace_back("quit"); }};
  }
  void start(CommandServer::Port port) {
    server_ = std::make_shared<CommandServer>(runtime_.runtime(), std::move(port));
    server_->start(directory_.path());
  }
  std::string next(CommandPeer& peer) {
    std::optional<std::string> line;
    EXPECT_TRUE(runtime_.runUntil([&] { return (line = peer.line()).has_value(); }));
    return line.value_or("");
  }
  std::string ask(const std::string& request) {
    if (!server_) start(port());
    CommandPeer peer(server_->path());
    peer.send(request + "\n");
    return next(peer);
  }

  test::TemporaryDirectory directory_;
  test::ScopedVariable variable_{"XDG_RUNTIME_DIR"};
  AgentSnapshot agent_;
  ServerList::Entries entries_;
  LogRing log_;
  Strings asked_;
  CommandServer::Completion decided_;
  CommandServer::Failure failure_;
  std::size_t tailnets_ = 1;
  test::TestRuntime runtime_;
  std::shared_ptr<CommandServer> server_;
};

TEST_F(CommandServerTest, ReportsTheStateFromItsPort) {
  const auto status = *parseCommandReply(ask(R"({"status":true})"));
  EXPECT_EQ(status.kind, CommandReply::Kind::result);
  EXPECT_EQ(json::decode<CommandStatus>(status.value)->version, "1");
  EXPECT_NE(ask(R"({"servers":true})").find(R"("name":"Hill")"), std::string::npos);
  EXPECT_EQ(ask(R"({"folders":true})"), R"({"result":[]})");
  EXPECT_EQ(ask(R"({"requests":true})"), R"({"result":{"requests":[],"omitted":0}})");
  EXPECT_EQ(ask(R"({"diagnostics":true})"), R"({"result":{"tray":1}})");
}

TEST_F(CommandServerTest, ForwardsTheUsersCommands) {
  const std::string done = R"({"result":null})";
  EXPECT_EQ(ask(R"({"join":"inv_v2"})"), done);
  EXPECT_EQ(ask(R"({"open":{}})"), done);
  EXPECT_EQ(ask(R"({"open":{"screen":"servers/5a7d/rename"}})"), done);
  EXPECT_EQ(ask(R"({"restartAgent":true})"), done);
  EXPECT_EQ(ask(R"({"restartTailnet":{}})"), done);
  EXPECT_EQ(ask(R"({"restartTailnet":{"server":"hill"}})"), done);
  EXPECT_EQ(ask(R"({"quit":true})"), done);
  EXPECT_EQ(asked_, (Strings{"join inv_v2", "open -", "open servers/5a7d/rename", "restart agent",
                             "restart all", "restart 5a7d", "quit"}));
}

TEST_F(CommandServerTest, ReportsWhyACommandFailed) {
  failure_ = "That key was used.";
  EXPECT_EQ(ask(R"({"join":"x"})"), R"({"error":"That key was used."})");
  EXPECT_NE(ask(R"({"open":{"screen":"../x"}})").find("not the name of a screen"),
            std::string::npos);
  EXPECT_NE(ask(R"({"logs":{"server":"x"}})").find("No server is called"), std::string::npos);
  EXPECT_NE(ask(R"({"restartTailnet":{"server":"x"}})").find("No server"), std::string::npos);
  tailnets_ = 0;
  EXPECT_NE(ask(R"({"restartTailnet":{}})").find("private network is in use"), std::string::npos);
  EXPECT_NE(ask("nonsense").find("does not understand"), std::string::npos);
}

TEST_F(CommandServerTest, AcceptsADecisionBeforeTheAgentHasAnswered) {
  start(port());
  CommandPeer peer(server_->path());
  peer.send("{\"answer\":{\"id\":\"r\",\"decision\":\"once\"}}\n");
  EXPECT_EQ(next(peer), R"({"accepted":true})");
  EXPECT_EQ(asked_, Strings{"r=approve"});
  decided_("too late");
  EXPECT_EQ(next(peer), R"({"error":"too late"})");
}

TEST_F(CommandServerTest, AllowsPermanentlyOnlyWithThePhrase) {
  for (const auto* confirm : {"", R"(,"confirm":"always allow")"}) {
    const auto answer =
        ask(std::string(R"({"answer":{"id":"r","decision":"always")") + confirm + "}}");
    EXPECT_NE(answer.find("No permanent exception was created"), std::string::npos);
  }
  EXPECT_EQ(asked_, Strings{});
  ask(R"({"answer":{"id":"r","decision":"always","confirm":" ALWAYS ALLOW"}})");
  EXPECT_EQ(asked_, Strings{"r=always"});
}

TEST_F(CommandServerTest, ShowsAndFollowsALog) {
  log_.append("one");
  EXPECT_EQ(ask(R"({"logs":{}})"), R"({"result":["one"]})");
  CommandPeer peer(server_->path());
  peer.send("{\"logs\":{\"follow\":true}}\n");
  EXPECT_EQ(next(peer), R"({"event":["one"]})");
  for (int i = 0; i < 202; ++i) log_.append("line");
  runtime_.advance(CommandSubscribers::interval);
  const auto line = next(peer);
  EXPECT_TRUE(line.starts_with(R"({"event":["… 2 lines left out","line",)")) << line.substr(0, 80);
}

TEST_F(CommandServerTest, WatchSendsTheStateAtFirstAndThenEachChange) {
  start(port());
  CommandPeer peer(server_->path());
  peer.send("{\"watch\":true}\n");
  EXPECT_TRUE(next(peer).starts_with(R"({"event":{"version":"1")"));
  runtime_.advance(CommandSubscribers::interval);
  EXPECT_EQ(peer.line(), std::nullopt);
  agent_.activity->pendingApprovals.push_back({.id = "r"});
  runtime_.advance(CommandSubscribers::interval);
  EXPECT_NE(next(peer).find("requestsWaiting"), std::string::npos);
}

TEST_F(CommandServerTest, StopsItsTimerWithTheLastWatcher) {
  start(port());
  {
    CommandPeer peer(server_->path());
    peer.send("{\"watch\":true}\n");
    next(peer);
    EXPECT_EQ(runtime_.clock.pendingTimers(), 1U);
  }
  EXPECT_TRUE(runtime_.runUntil([&] { return runtime_.clock.pendingTimers() == 0; }));
}

TEST_F(CommandServerTest, StatusWaitsForTheAnswerAboutTheIconUpToALimit) {
  std::function<void(TrayHost)> found;
  auto slow = port();
  slow.findTrayHost = [&](auto done) { found = std::move(done); };
  start(std::move(slow));
  CommandPeer first(server_->path());
  first.send("{\"status\":true}\n");
  ASSERT_TRUE(runtime_.runUntil([&] { return found != nullptr; }));
  EXPECT_EQ(first.line(), std::nullopt);
  runtime_.advance(CommandServer::hostLimit);
  EXPECT_EQ(next(first).find("trayHost"), std::string::npos);
  found(TrayHost::absent);
  found = nullptr;
  CommandPeer second(server_->path());
  second.send("{\"status\":true}\n");
  ASSERT_TRUE(runtime_.runUntil([&] { return found != nullptr; }));
  found(TrayHost::present);
  EXPECT_NE(next(second).find(R"("trayHost":true)"), std::string::npos);
}

TEST_F(CommandServerTest, BoundsTheRequestsThatWaitForABusyMainThread) {
  start(port());
  std::vector<std::unique_ptr<CommandPeer>> peers;
  std::string refusal;
  for (int i = 0; i < 200 && refusal.empty(); ++i) {
    // The request of a client that disconnects stays in the queue.
    auto peer = std::make_unique<CommandPeer>(server_->path());
    peer->send("{\"servers\":true}\n");
    if (i >= CommandServer::maxWaiting) refusal = peer->awaitLine();
    runtime_.reactor.run([] {});
  }
  EXPECT_NE(refusal.find("too busy"), std::string::npos);
}

}  // namespace
}  // namespace zephyl
