#include "ZephylTray/Control/ControlAPI.hpp"

#include <map>

#include <gtest/gtest.h>

namespace zephyl {
namespace {

/// An API whose state the test sets.
class ControlAPITest : public ::testing::Test {
 protected:
  json::Object onlyServer() { return api_.servers().at(0); }

  bool programsInstalled_ = true;
  bool enrolled_ = false;
  std::vector<ServerEntry> entries_;
  std::map<std::string, TailnetView> tailnets_;  // by server id; the first one is the primary
  AgentSnapshot agent_;
  ControlAPI api_{{
      .tailnetProgramsInstalled = [this] { return programsInstalled_; },
      .isEnrolled = [this] { return enrolled_; },
      .anyTailnetRunning = [this] { return !tailnets_.empty(); },
      .primaryTailnet =
          [this] {
            return tailnets_.empty() ? std::nullopt : std::optional(tailnets_.begin()->second);
          },
      .tailnet =
          [this](const std::string& id) {
            return tailnets_.contains(id) ? std::optional(tailnets_.at(id)) : std::nullopt;
          },
      .tailnetReports =
          [this] {
            std::vector<Diagnostics::Tailnet> reports;
            reports.reserve(tailnets_.size());
            for (const auto& [id, view] : tailnets_) {
              reports.push_back({.serverId = id,
                                 .running = view.running,
                                 .state = view.state,
                                 .log = {"a line"}});
            }
            return reports;
          },
      .servers = [this] { return ServerList(entries_); },
      .agent = [this]() -> const AgentSnapshot& { return agent_; },
      .webAddressOf =
          [](const std::optional<std::string>& bound) {
            return bound ? std::optional("http://" + *bound) : std::nullopt;
          },
      .tray = [] { return Diagnostics::Tray{.version = "2.1", .trayPort = 7}; },
      .agentProcess = [] { return Diagnostics::Agent{.running = true, .managed = true}; },
      .restartAgent = {},
      .getRoots = {},
      .serverActions = {},
      .folderSharing = {},
  }};
};

TEST_F(ControlAPITest, StatusBeforeAnyServer) {
  EXPECT_EQ(api_.status(),
            (json::Object{{"available", true}, {"enrolled", false}, {"running", false}}));
}

TEST_F(ControlAPITest, StatusOfARunningTailnet) {
  programsInstalled_ = false;
  enrolled_ = true;
  tailnets_["a"] = {true, {.boundAddress = "100.64.0.7:80", .activeRelay = "relay-7"}};
  EXPECT_EQ(api_.status(), (json::Object{{"available", false},
                                         {"enrolled", true},
                                         {"running", true},
                                         {"url", "http://100.64.0.7:80"},
                                         {"relay", "relay-7"}}));
}

TEST_F(ControlAPITest, AServerThatIsConnected) {
  entries_ = {{.id = "a",
               .label = "Lab",
               .serverAccent = "#123456",
               .tailnetFingerprint = "f",
               .enabled = true}};
  tailnets_["a"] = {true, {.boundAddress = "100.64.0.7:80"}};
  agent_.status = AgentStatus{
      .connections = {{{.serverId = "a", .state = AgentState::connected, .lastError = "late"}}}};
  EXPECT_EQ(onlyServer(), *json::parse(R"({"id":"a","name":"Lab","label":"Lab","nameResolved":true,
    "accent":"#123456","localAccent":"","enabled":true,"usesTailnet":true,"running":true,
    "enrolled":true,"agentError":"late","serverAccent":"#123456",
    "boundAddress":"100.64.0.7:80","webUrl":"http://100.64.0.7:80"})"));
}

TEST_F(ControlAPITest, EmptyFieldsAreOmitted) {
  entries_ = {{.id = "a", .serverName = ""}};
  tailnets_["a"] = {true,
                    {.boundAddress = "",
                     .activeRelay = "",
                     .stalledReason = "",
                     .lastEnrolError = "",
                     .unresolvedTarget = ""}};
  agent_.status =
      AgentStatus{.connections = {{{.serverId = "a", .state = AgentState::disconnected}}}};
  const auto server = onlyServer();
  for (const char* key : {"serverName", "boundAddress", "webUrl", "relay", "addressUnresolved",
                          "enrolError", "tailnetStalled", "agentError"}) {
    EXPECT_FALSE(server.contains(key)) << key;
  }
  EXPECT_EQ(server.at("enrolled"), false);
}

TEST_F(ControlAPITest, ATailnetThatFailsHasAReason) {
  entries_ = {{.id = "a"}};
  tailnets_["a"] = {
      false,
      {.stalledReason = "stalled", .lastEnrolError = "expired", .unresolvedTarget = "http://lab"}};
  const auto server = onlyServer();
  EXPECT_EQ(server.at("running"), false);
  EXPECT_EQ(server.at("tailnetStalled"), "stalled");
  EXPECT_EQ(server.at("enrolError"), "expired");
  EXPECT_EQ(server.at("addressUnresolved"), "http://lab");
}

TEST_F(ControlAPITest, AServerWithoutATailnetDoesNotRun) {
  entries_ = {{.id = "a"}};
  const auto server = onlyServer();
  EXPECT_EQ(server.at("running"), false);
  EXPECT_EQ(server.at("usesTailnet"), false);
}

TEST_F(ControlAPITest, DiagnosticsHaveEverySection) {
  entries_ = {{.id = "a"}};
  tailnets_["a"] = {true, {.boundAddress = "100.64.0.7:80"}};
  agent_.reachable = true;
  agent_.activity = Activity{.busy = true};
  const auto document = api_.diagnostics();
  EXPECT_EQ(document.at("tray").at("trayPort"), 7);
  EXPECT_EQ(document.at("agent").at("reachable"), true);
  EXPECT_EQ(document.at("agent").at("managed"), true);
  EXPECT_EQ(document.at("activity").at("busy"), true);
  EXPECT_EQ(document.at("servers").at(0).at("boundAddress"), "100.64.0.7:80");
  EXPECT_EQ(document.at("servers").at(0).at("log").at(0), "a line");
}

}  // namespace
}  // namespace zephyl
