#include "Integration/TrayFixture.hpp"

namespace zephyl {
namespace {

using namespace std::chrono_literals;

/// A tray with a reachable agent, used over its control API.
class TrayControl : public test::TrayFixture {
 protected:
  TrayControl() {
    addTailnetPrograms();
    launchBesideAgent();
    agent_.answerHealthily(
        R"([{"root":"/a","name":"a","servers":["gone"]},{"root":"/b","name":"b"}])");
  }
};

TEST_F(TrayControl, TheDesktopAppGetsTokenAndPort) {
  const auto& environment = child("zephyl-desktop")->options().environment;
  EXPECT_EQ(environment.at("ZEPHYL_ONBOARD_PORT"), std::to_string(controlPort_));
  EXPECT_EQ(environment.at("ZEPHYL_ONBOARD"), "1");
  EXPECT_FALSE(environment.contains("ZEPHYL_URL"));
}

TEST_F(TrayControl, StatusAndServersOfARunningTailnet) {
  EXPECT_EQ(ask("GET /status"),
            (json::Object{{"available", true}, {"enrolled", false}, {"running", false}}));
  const auto id = joinServer();
  const auto status = ask("GET /status").as_object();
  EXPECT_EQ(status.at("enrolled"), true);
  EXPECT_EQ(status.at("running"), true);
  EXPECT_EQ(status.at("url"), "http://100.64.0.7:80");
  const auto server = ask("GET /servers").at("servers").at(0).as_object();
  EXPECT_EQ(server.at("id").as_string(), id);
  EXPECT_EQ(server.at("name"), "Zephyl 1");
  EXPECT_EQ(server.at("usesTailnet"), true);
  EXPECT_EQ(server.at("running"), true);
  EXPECT_EQ(server.at("enrolled"), false);
  EXPECT_EQ(server.at("webUrl"), "http://100.64.0.7:80");
}

TEST_F(TrayControl, TheInternalNameIsResolvedWhenTheFirstTailnetStarts) {
  EXPECT_EQ(launched("getent"), 0U) << "there is no tailnet yet";
  joinServer();
  const auto lookUp = child("getent");
  ASSERT_NE(lookUp, nullptr);
  EXPECT_EQ(lookUp->options().arguments.back(), "zephyl.internal");
  lookUp->print({"127.100.0.1 STREAM zephyl.internal", "::1 STREAM"});
  lookUp->exit({});
  runtime_.settle();
  EXPECT_EQ(ask("GET /status").at("url"), "http://zephyl.internal");
  runtime_.advance(AgentMonitor::pollInterval);
  EXPECT_EQ(invite("inv_v2_" + std::string(32, 'b') + "_two"), ok_);
  runtime_.advance(2s);
  EXPECT_EQ(launched("getent"), 1U);
}

TEST_F(TrayControl, AWindowThatIsStartedLaterGetsTheServer) {
  joinServer();
  child("zephyl-desktop")->exit({});
  runtime_.settle();
  choose(menuActions::OpenDesktopWindow());
  const auto& environment = child("zephyl-desktop")->options().environment;
  EXPECT_EQ(environment.at("ZEPHYL_URL"), "http://100.64.0.7:80");
  EXPECT_FALSE(environment.contains("ZEPHYL_ONBOARD"));
}

TEST_F(TrayControl, AnEmptyAddressIsIgnored) {
  joinServer();
  child("zephyl-tailnet")->print({"data tunnel on http://", "verified control plane via "});
  runtime_.settle();
  const auto status = ask("GET /status").as_object();
  EXPECT_FALSE(status.contains("url"));
  EXPECT_FALSE(status.contains("relay"));
  const auto server = ask("GET /servers").at("servers").at(0).as_object();
  for (const char* key : {"boundAddress", "webUrl", "relay"}) {
    EXPECT_FALSE(server.contains(key)) << key;
  }
}

TEST_F(TrayControl, ATailnetThatFailsRepeatedlyIsReported) {
  joinServer();
  for (int failures = 0; failures <= TailnetProcess::maxFailures; ++failures) {
    runtime_.advance(61s);
    ASSERT_NE(child("zephyl-tailnet"), nullptr);
    child("zephyl-tailnet")->exit({ExitStatus::Reason::exited, 1});
    runtime_.settle();
  }
  const auto server = ask("GET /servers").at("servers").at(0).as_object();
  EXPECT_EQ(server.at("running"), false);
  EXPECT_FALSE(server.at("tailnetStalled").as_string().empty());
  EXPECT_EQ(ask("GET /diagnostics").at("servers").at(0).at("tailnetStalled"),
            server.at("tailnetStalled"));
}

TEST_F(TrayControl, RootsAreTheAgentsRecords) {
  EXPECT_EQ(ask("GET /roots"),
            *json::parse(R"({"roots":[{"root":"/a","name":"a","servers":["gone"]},)"
                         R"({"root":"/b","name":"b"}]})"));
}

TEST_F(TrayControl, RootsWithoutAnAnswerOfTheAgentAreABadGateway) {
  agent_.answer("GET /api/roots", 200, "{}");
  EXPECT_EQ(ask("GET /roots"), error("roots: missing"));
  EXPECT_EQ(status_, "502");
}

TEST_F(TrayControl, AFolderIsChosenAndSharedWithOneServer) {
  const auto id = joinServer();
  agent_.answer("POST /api/roots", 200, R"({"roots":[]})");
  const test::RawClient client(controlPort_);
  send(client, "POST /servers/" + id + "/roots", "");
  ASSERT_TRUE(runtime_.runUntil([&] { return !desktop_.folderRequests.empty(); }));
  desktop_.folderAnswer({.answer = "/home/me/project"});
  EXPECT_EQ(receive(client), ok_);
  const auto requests = agent_.requests();
  const auto added = std::ranges::find(requests, "POST", &test::FakeAgent::Request::method);
  ASSERT_NE(added, requests.end());
  EXPECT_EQ(*json::parse(added->body),
            (json::Object{{"root", "/home/me/project"}, {"servers", json::Array{id}}}));
}

TEST_F(TrayControl, WithoutAPortalTheOwnFolderDialogIsUsed) {
  const auto id = joinServer();
  const test::RawClient client(controlPort_);
  send(client, "POST /servers/" + id + "/roots", "");
  ASSERT_TRUE(runtime_.runUntil([&] { return !desktop_.folderRequests.empty(); }));
  desktop_.folderAnswer(FolderChoice::unanswered(Error{"no portal"}));
  ASSERT_EQ(dialogs_.folderRequests, desktop_.folderRequests);
  dialogs_.folderAnswer(Error{"no screen"});
  EXPECT_EQ(receive(client), error("no screen"));
}

TEST_F(TrayControl, AFolderWithoutServersIsRemoved) {
  const auto id = joinServer();
  agent_.answer("DELETE /api/roots", 200, R"({"roots":[]})");
  EXPECT_EQ(ask("POST /servers/" + id + "/roots/scope", R"({"root":"/a","shared":false})"), ok_);
  EXPECT_EQ(agent_.requestCount("DELETE /api/roots"), 1U);
}

TEST_F(TrayControl, AFolderSharedWithAllServersStaysSharedWithTheOthers) {
  const auto id = joinServer();
  EXPECT_EQ(invite("inv_v2_" + std::string(32, 'b') + "_two"), ok_);
  agent_.answer("PATCH /api/roots", 200, R"({"roots":[]})");
  EXPECT_EQ(ask("POST /servers/" + id + "/roots/scope", R"({"root":"/b","shared":false})"), ok_);
  EXPECT_EQ(agent_.requestCount("PATCH /api/roots"), 1U);
}

TEST_F(TrayControl, DiagnosticsHaveEverySectionAndNoSecret) {
  joinServer();
  child("zephyl-tailnet")->print(std::vector<std::string>(50, "a line"));
  runtime_.settle();
  const auto text = json::compact(ask("GET /diagnostics"));
  const auto document = json::parse(text)->as_object();
  EXPECT_EQ(document.at("tray").at("platform"), "linux");
  EXPECT_EQ(document.at("tray").at("trayPort"), agent_.port());
  EXPECT_EQ(document.at("tray").at("standalone"), false);
  EXPECT_EQ(document.at("agent").at("reachable"), true);
  EXPECT_EQ(document.at("agent").at("managed"), false);
  EXPECT_EQ(document.at("activity").at("busy"), false);
  EXPECT_EQ(document.at("model").at("phase"), "absent");
  EXPECT_TRUE(document.at("indexing").is_array());
  const auto server = document.at("servers").at(0).as_object();
  EXPECT_EQ(server.at("tailnetRunning"), true);
  EXPECT_EQ(server.at("boundAddress"), "100.64.0.7:80");
  EXPECT_TRUE(server.at("connection").is_null());
  EXPECT_EQ(server.at("log").as_array().size(), 40U);
  EXPECT_EQ(text.find("hskey"), std::string::npos);
  EXPECT_EQ(text.find("_one"), std::string::npos);
  EXPECT_EQ(text.find(token()), std::string::npos);
}

TEST_F(TrayControl, ARequestedScreenIsReturnedOnce) {
  delegate_->applicationShouldHandleReopen();
  EXPECT_EQ(ask("GET /status").at("request"), "join");
  EXPECT_FALSE(ask("GET /status").as_object().contains("request"));
  joinServer();
  desktop_.events.reopened();
  EXPECT_EQ(ask("GET /status").at("request"), "servers");
}

TEST_F(TrayControl, ATargetThatIsNotFoundIsAnnouncedOncePerServer) {
  const auto announced = [&] {
    for (const auto* target : {"TARGET UNRESOLVED: http://a", "TARGET UNRESOLVED: http://b"}) {
      child("zephyl-tailnet")->print({target});
      runtime_.settle();
    }
    return ask("GET /status").as_object().contains("request");
  };
  joinServer();
  EXPECT_TRUE(announced());
  EXPECT_FALSE(announced());
}

TEST_F(TrayControl, RestartsTheAgent) {
  world_.addAgent();
  EXPECT_EQ(ask("POST /agent/restart"), ok_);
  runtime_.advance(2s);
  EXPECT_EQ(ask("GET /diagnostics").at("agent").at("managed"), true);
}

}  // namespace
}  // namespace zephyl
