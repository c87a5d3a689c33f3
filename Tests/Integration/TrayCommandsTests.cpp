#include <filesystem>

#include "Integration/TrayFixture.hpp"
#include "Support/CommandPeer.hpp"
#include "ZephylTray/Commands/Protocol/CommandMessages.hpp"
#include "ZephylTray/Commands/Protocol/CommandRecords.hpp"

namespace zephyl {
namespace {

using test::CommandPeer;

/// A whole tray that is controlled through its socket.
class TrayCommands : public test::TrayFixture {
 protected:
  TrayCommands() {
    std::filesystem::create_directories(world_.baseDirectory());
    commandSetup_ = {.baseDirectory = world_.baseDirectory(), .mode = "headless"};
    agent_.answer("POST /api/approvals", 200, "{}");
    launchBesideAgent();
    runtime_.runUntil([&] { return agent_.requestCount("GET /api/activity") == 2; });
    runtime_.settle();
  }

  [[nodiscard]] std::string path() const { return world_.baseDirectory() + "/tray.sock"; }
  CommandReply next(CommandPeer& peer) {
    std::optional<std::string> line;
    EXPECT_TRUE(runtime_.runUntil([&] { return (line = peer.line()).has_value(); }));
    return *parseCommandReply(line.value_or("{}"));
  }
  CommandReply ask(const std::string& request) {
    CommandPeer peer(path());
    peer.send(request + "\n");
    auto reply = next(peer);
    while (!reply.isLast()) reply = next(peer);
    return reply;
  }

  test::ScopedVariable noRuntimeDirectory_{"XDG_RUNTIME_DIR"};
};

TEST_F(TrayCommands, StatusDescribesTheTray) {
  const auto status = *json::decode<CommandStatus>(ask(R"({"status":true})").value);
  EXPECT_EQ(status.mode, "headless");
  EXPECT_TRUE(status.agent.reachable);
  EXPECT_EQ(status.agent.port, agent_.port());
  EXPECT_EQ(status.trayHost, std::nullopt);
  EXPECT_TRUE(ask(R"({"diagnostics":true})").value.as_object().contains("tray"));
}

TEST_F(TrayCommands, ADecisionReachesTheAgentAndClosesThePrompt) {
  const auto activity = test::activityJSON(
      false, R"(,"pendingApprovals":[{"id":"a","kind":"path","tool":"cat","target":"/etc/a",)"
             R"("root":"/r","reasons":[],"createdAt":1}])");
  agent_.answer("GET /api/activity", 200, activity);
  agent_.writeToStreams("data: " + activity + "\n\n");
  ASSERT_TRUE(runtime_.runUntil([&] { return dialogs_.alerts().size() == 1; }));
  EXPECT_EQ(ask(R"({"answer":{"id":"a","decision":"once"}})").kind, CommandReply::Kind::result);
  EXPECT_TRUE(dialogs_.alerts().empty());
  EXPECT_EQ(agent_.requestCount("POST /api/approvals"), 1U);
}

TEST_F(TrayCommands, AServerIsJoinedByACommand) {
  addTailnetPrograms();
  const auto reply = ask(R"({"join":"inv_v2_)" + std::string(32, 'a') + R"(_one"})");
  EXPECT_EQ(reply.kind, CommandReply::Kind::result);
  ASSERT_EQ(Servers::all().size(), 1U);
  const auto servers = ask(R"({"servers":true})").value;
  EXPECT_EQ(servers.at(0).at("id").as_string(), Servers::all()[0].id);
}

TEST_F(TrayCommands, TheSocketIsRemovedWithTheTray) {
  EXPECT_EQ(ask(R"({"quit":true})").kind, CommandReply::Kind::result);
  runtime_.mainLoop.run();  // returns because of the request
  EXPECT_TRUE(std::filesystem::exists(path()));
  delegate_->applicationWillTerminate();
  EXPECT_FALSE(std::filesystem::exists(path()));
  delegate_.reset();
}

}  // namespace
}  // namespace zephyl
