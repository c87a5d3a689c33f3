#include "ZephylTray/Control/Diagnostics.hpp"

#include <gtest/gtest.h>

namespace zephyl {
namespace {

Diagnostics withOneServer() {
  return {
      .tray = {.version = "2.1", .trayPort = 8799, .repoRoot = "/src", .standalone = true},
      .agent = {.running = true, .managed = true},
      .servers = ServerList({{.id = "a", .label = "Office", .enabled = true}}),
  };
}

json::Object document(const Diagnostics& diagnostics) {
  return diagnostics.toJSON();
}

json::Object onlyServer(const Diagnostics& diagnostics) {
  return document(diagnostics).at("servers").as_array().at(0).as_object();
}

TEST(Diagnostics, AreCompleteWhenNothingIsKnown) {
  EXPECT_EQ(document({}), json::parse(R"({
    "tray": {"version": "", "platform": "linux", "trayPort": 0, "repoRoot": "",
             "standalone": false},
    "agent": {"reachable": false, "running": false, "managed": false, "state": null,
              "machineId": null},
    "servers": [],
    "activity": {"busy": false, "inFlight": 0, "counters": {}, "recent": []},
    "indexing": [],
    "model": {"phase": "absent", "downloadedBytes": 0, "totalBytes": 0, "error": null}
  })")
                              ->as_object());
}

TEST(Diagnostics, DescribeTheTrayAndItsAgent) {
  auto diagnostics = withOneServer();
  diagnostics.view.reachable = true;
  diagnostics.view.status = {.state = AgentState::enrolled, .machineId = "m-1"};
  const auto found = document(diagnostics);
  EXPECT_EQ(found.at("tray"), *json::parse(R"({"version": "2.1", "platform": "linux",
    "trayPort": 8799, "repoRoot": "/src", "standalone": true})"));
  EXPECT_EQ(found.at("agent"), *json::parse(R"({"reachable": true, "running": true,
    "managed": true, "state": "enrolled", "machineId": "m-1"})"));
}

TEST(Diagnostics, AreValidUTF8WhateverTheEnvironmentContains) {
  Diagnostics diagnostics;
  diagnostics.tray = {.version = "1\xff", .repoRoot = "/\xc3("};
  EXPECT_EQ(document(diagnostics).at("tray").at("version"), "1\uFFFD");
  EXPECT_EQ(document(diagnostics).at("tray").at("repoRoot"), "/\uFFFD(");
}

TEST(Diagnostics, DescribeAServerWithoutATailnet) {
  EXPECT_EQ(onlyServer(withOneServer()), json::parse(R"({"id": "a", "name": "Office",
    "enabled": true, "usesTailnet": false, "tailnetRunning": false, "connection": null})")
                                             ->as_object());
}

TEST(Diagnostics, DescribeAServerWithItsTailnetAndTheAgentsView) {
  auto diagnostics = withOneServer();
  diagnostics.view.status = {
      .connections = {
          {{.serverId = "a", .state = AgentState::connecting, .lastError = "refused"}}}};
  diagnostics.tailnets = {{.serverId = "a",
                           .running = true,
                           .state = {.boundAddress = "100.64.0.7:80",
                                     .activeRelay = "relay-1",
                                     .stalledReason = "stalled",
                                     .lastEnrolError = "key expired",
                                     .unresolvedTarget = "http://office"},
                           .log = {"one", "two\x1b[31m"}}};
  EXPECT_EQ(onlyServer(diagnostics), json::parse(R"({"id": "a", "name": "Office",
    "enabled": true, "usesTailnet": false, "tailnetRunning": true,
    "connection": {"serverId": "a", "state": "connecting", "lastError": "refused"},
    "boundAddress": "100.64.0.7:80", "relay": "relay-1", "addressUnresolved": "http://office",
    "enrolError": "key expired", "tailnetStalled": "stalled", "agentError": "refused",
    "log": ["one", "two␛[31m"]})")
                                         ->as_object());
}

TEST(Diagnostics, KeepTheNewestLinesOfALog) {
  auto diagnostics = withOneServer();
  diagnostics.tailnets = {{.serverId = "a"}};
  for (int line = 1; line <= 41; ++line) {
    diagnostics.tailnets[0].log.push_back(std::to_string(line));
  }
  const auto log = onlyServer(diagnostics).at("log").as_array();
  ASSERT_EQ(log.size(), Diagnostics::maxLogLines);
  EXPECT_EQ(log.front(), "2");
  EXPECT_EQ(log.back(), "41");
}

TEST(Diagnostics, DescribeTheActivityOfTheAgent) {
  Diagnostics diagnostics;
  diagnostics.view.activity = {
      .busy = true,
      .inFlight = 2,
      .counters = {{"read", 7}},
      .recent = {{.tool = "read", .path = "/r/a", .detail = "3 lines", .ok = true, .at = 1.5},
                 {.tool = "list", .ok = false, .at = 2}},
      .indexing = {{.root = "/r",
                    .ready = true,
                    .filesEmbedded = 3,
                    .chunksEmbedded = 9,
                    .lexicalFiles = 4,
                    .ragEnabled = true,
                    .indexBytes = 4096},
                   {.root = "/s", .embedding = true}},
      .model = {{.phase = ModelPhase::failed,
                 .downloadedBytes = 1,
                 .totalBytes = 2,
                 .error = "no space"}}};
  const auto found = document(diagnostics);
  EXPECT_EQ(found.at("activity"), *json::parse(R"({"busy": true, "inFlight": 2,
    "counters": {"read": 7}, "recent": [
      {"tool": "read", "path": "/r/a", "detail": "3 lines", "at": 1.5},
      {"tool": "list", "path": null, "detail": null, "at": 2.0}]})"));
  EXPECT_EQ(found.at("indexing"), *json::parse(R"([
    {"root": "/r", "ready": true, "embedding": false, "filesEmbedded": 3, "chunksEmbedded": 9,
     "lexicalFiles": 4, "ragEnabled": true, "indexBytes": 4096},
    {"root": "/s", "ready": false, "embedding": true, "filesEmbedded": 0, "chunksEmbedded": 0,
     "lexicalFiles": 0, "ragEnabled": false, "indexBytes": null}])"));
  EXPECT_EQ(found.at("model"), *json::parse(R"({"phase": "failed", "downloadedBytes": 1,
    "totalBytes": 2, "error": "no space"})"));
}

}  // namespace
}  // namespace zephyl
