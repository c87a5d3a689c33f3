#include <algorithm>
#include <cstdlib>

#include <gtest/gtest.h>

#include "Support/FakeAgent.hpp"
#include "Support/FakeDesktop.hpp"
#include "Support/FakeDialogs.hpp"
#include "Support/RawClient.hpp"
#include "Support/TestRuntime.hpp"
#include "Support/TrayWorld.hpp"
#include "System/Data/JSON.hpp"
#include "System/Files/UserDefaults.hpp"
#include "ZephylTray/App/AppDelegate.hpp"
#include "ZephylTray/Config/Config.hpp"

namespace zephyl {
namespace {

using namespace std::chrono_literals;

/// A controller with an agent that answers, asked over its control API as the desktop app does.
class ControlTest : public ::testing::Test {
 protected:
  ControlTest() {
    world_.addProgram("packages/tailnet-client/tailscaled");
    world_.addProgram("packages/tailnet-client/zephyl-tailnet");
    world_.addProgram("packages/desktop/src-tauri/target/release/zephyl-desktop");
    agent_.answerHealthily(
        R"([{"root":"/a","name":"a","servers":["gone"]},{"root":"/b","name":"b"}])");
    delegate_ = std::make_shared<AppDelegate>(runtime_.runtime(), desktop_, dialogs_);
    delegate_->applicationDidFinishLaunching();
    runtime_.runUntil([&] { return delegate_->agentView().reachable; });
  }
  ~ControlTest() override { delegate_->applicationWillTerminate(); }

  std::shared_ptr<test::FakeChild> child(const std::string& name) {
    const auto children = runtime_.launcher.children();
    const auto found = std::ranges::find_if(children, [&](const auto& each) {
      return each->isRunning() && each->options().executable.ends_with(name);
    });
    return found == children.end() ? nullptr : *found;
  }

  void send(const test::RawClient& client, const std::string& line, const std::string& body) {
    const auto token = child("zephyl-desktop")->options().environment.at("ZEPHYL_ONBOARD_TOKEN");
    client.send(line + " HTTP/1.1\r\nX-Zephyl-Onboard-Token: " + token +
                "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body);
  }
  json::Value receive(const test::RawClient& client) {
    EXPECT_TRUE(runtime_.runUntil([&] { return client.isReadable(1ms); }));
    const auto answer = client.receiveAll();
    status_ = answer.substr(9, 3);
    return *json::parse(answer.substr(answer.find("\r\n\r\n") + 4));
  }
  json::Value ask(const std::string& line, const std::string& body = "") {
    const test::RawClient client(port_);
    send(client, line, body);
    return receive(client);
  }

  const json::Value ok_ = json::Object{{"ok", true}};
  static json::Value error(const std::string& message) { return json::Object{{"error", message}}; }

  /// A joined server whose tailnet is up.
  std::string joinServer() {
    EXPECT_EQ(ask("POST /invite", R"({"key":"inv_v2_)" + std::string(32, 'a') + R"(_one"})"), ok_);
    runtime_.advance(2s);
    child("zephyl-tailnet")->print({"data tunnel on http://100.64.0.7:80"});
    runtime_.settle();
    return Servers::all()[0].id;
  }

  const int port_ = test::freePort();
  test::TrayWorld world_;
  test::FakeAgent agent_;
  test::ScopedVariable agentPort_{"AGENT_TRAY_PORT", std::to_string(agent_.port())};
  test::ScopedVariable controlPort_{"ZEPHYL_ONBOARD_PORT", std::to_string(port_)};
  test::TestRuntime runtime_;
  test::FakeDesktop desktop_;
  test::FakeDialogs dialogs_;
  std::shared_ptr<AppDelegate> delegate_;
  std::string status_;  // of the last answer
};

TEST_F(ControlTest, TheDesktopAppIsToldHowToReachTheTray) {
  const auto& environment = child("zephyl-desktop")->options().environment;
  EXPECT_EQ(environment.at("ZEPHYL_ONBOARD_PORT"), std::to_string(port_));
  EXPECT_EQ(environment.at("ZEPHYL_ONBOARD"), "1");
  EXPECT_FALSE(environment.contains("ZEPHYL_URL"));
}

TEST_F(ControlTest, StatusBeforeAnyServer) {
  EXPECT_EQ(ask("GET /status"),
            (json::Object{{"available", true}, {"enrolled", false}, {"running", false}}));
}

TEST_F(ControlTest, StatusAndServersOfATailnetThatIsUp) {
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
  EXPECT_FALSE(server.contains("agentError"));
}

TEST_F(ControlTest, TheInternalNameStandsForTheAddressOnceItIsKnownToResolve) {
  EXPECT_EQ(child("getent"), nullptr) << "there is no tailnet yet";
  joinServer();
  ASSERT_NE(child("getent"), nullptr);
  EXPECT_EQ(child("getent")->options().arguments.back(), "zephyl.internal");
  child("getent")->print({"127.100.0.1 STREAM zephyl.internal", "::1 STREAM"});
  child("getent")->exit({});
  runtime_.settle();
  EXPECT_EQ(ask("GET /status").at("url"), "http://zephyl.internal");
}

TEST_F(ControlTest, TheInternalNameStandsForNothingWhereItLeadsElsewhere) {
  joinServer();
  child("getent")->print({"127.0.0.1 STREAM zephyl.internal", "203.0.113.9 STREAM"});
  child("getent")->exit({});
  runtime_.settle();
  EXPECT_EQ(ask("GET /status").at("url"), "http://100.64.0.7:80");
}

TEST_F(ControlTest, TheFirstAnswerAboutTheInternalNameIsFinal) {
  joinServer();
  child("getent")->exit({ExitStatus::Reason::exited, 2});
  runtime_.settle();
  runtime_.advance(AppDelegate::pollInterval);
  EXPECT_EQ(ask("POST /invite", R"({"key":"inv_v2_)" + std::string(32, 'b') + R"(_two"})"), ok_);
  EXPECT_EQ(child("getent"), nullptr);
  EXPECT_EQ(ask("GET /status").at("url"), "http://100.64.0.7:80");
}

TEST_F(ControlTest, AWindowThatIsStartedLaterIsToldOfTheServer) {
  joinServer();
  child("zephyl-desktop")->exit({});
  runtime_.settle();
  delegate_->openDesktopWindow();
  const auto& environment = child("zephyl-desktop")->options().environment;
  EXPECT_EQ(environment.at("ZEPHYL_URL"), "http://100.64.0.7:80");
  EXPECT_FALSE(environment.contains("ZEPHYL_ONBOARD"));
}

TEST_F(ControlTest, AnAddressThatIsEmptyIsNone) {
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

TEST_F(ControlTest, ATailnetThatFailsAgainAndAgainSaysSo) {
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

TEST_F(ControlTest, RootsAreTheAgentsRecords) {
  EXPECT_EQ(ask("GET /roots"),
            *json::parse(R"({"roots":[{"root":"/a","name":"a","servers":["gone"]},)"
                         R"({"root":"/b","name":"b"}]})"));
}

TEST_F(ControlTest, RootsThatTheAgentDoesNotTellAreABadGateway) {
  agent_.answer("GET /api/roots", 200, "{}");
  EXPECT_EQ(ask("GET /roots"), error("roots: missing"));
  EXPECT_EQ(status_, "502");
}

TEST_F(ControlTest, AFolderIsChosenAndSharedWithOneServer) {
  const auto id = joinServer();
  agent_.answer("POST /api/roots", 200, R"({"roots":[]})");
  const test::RawClient client(port_);
  send(client, "POST /servers/" + id + "/roots", "");
  ASSERT_TRUE(runtime_.runUntil([&] { return !desktop_.folderRequests.empty(); }));
  EXPECT_EQ(desktop_.folderRequests[0].prompt, "Share");
  EXPECT_EQ(desktop_.folderRequests[0].message,
            "Choose a project folder to share with this Zephyl.");
  desktop_.folderAnswer({.answer = "/home/me/project"});
  EXPECT_EQ(receive(client), ok_);
  const auto requests = agent_.requests();
  const auto added = std::ranges::find(requests, "POST", &test::FakeAgent::Request::method);
  ASSERT_NE(added, requests.end());
  EXPECT_EQ(*json::parse(added->body),
            (json::Object{{"root", "/home/me/project"}, {"servers", json::Array{id}}}));
}

TEST_F(ControlTest, ACancelledChoiceIsASuccess) {
  const auto id = joinServer();
  const test::RawClient client(port_);
  send(client, "POST /servers/" + id + "/roots", "");
  ASSERT_TRUE(runtime_.runUntil([&] { return !desktop_.folderRequests.empty(); }));
  desktop_.folderAnswer({.answer = std::nullopt});
  EXPECT_EQ(receive(client), ok_);
  EXPECT_EQ(agent_.requestCount("POST /api/roots"), 0U);
}

TEST_F(ControlTest, WithoutAPickerOfTheDesktopOurOwnAsks) {
  const auto id = joinServer();
  const test::RawClient client(port_);
  send(client, "POST /servers/" + id + "/roots", "");
  ASSERT_TRUE(runtime_.runUntil([&] { return !desktop_.folderRequests.empty(); }));
  desktop_.folderAnswer(FolderChoice::unanswered(Error{"no portal"}));
  ASSERT_EQ(dialogs_.folderRequests, desktop_.folderRequests);
  dialogs_.folderAnswer(Error{"no screen"});
  EXPECT_EQ(receive(client), error("no screen"));
}

TEST_F(ControlTest, AnAnswerThatCannotBeUsedIsAnErrorAndNoReasonToAskAgain) {
  const auto id = joinServer();
  const test::RawClient client(port_);
  send(client, "POST /servers/" + id + "/roots", "");
  ASSERT_TRUE(runtime_.runUntil([&] { return !desktop_.folderRequests.empty(); }));
  desktop_.folderAnswer({.answer = Error{"not on this machine"}});
  EXPECT_EQ(receive(client), error("not on this machine"));
  EXPECT_TRUE(dialogs_.folderRequests.empty());
  EXPECT_EQ(agent_.requestCount("POST /api/roots"), 0U);
}

TEST_F(ControlTest, EachOfSeveralQuestionsForAFolderIsAnswered) {
  const auto id = joinServer();
  const test::RawClient first(port_);
  const test::RawClient second(port_);
  std::size_t asked = 0;
  for (const auto* client : {&first, &second}) {
    send(*client, "POST /servers/" + id + "/roots", "");
    ++asked;
    ASSERT_TRUE(runtime_.runUntil([&] { return desktop_.folderRequests.size() == asked; }));
    desktop_.folderAnswer(FolderChoice::unanswered(Error{"no portal"}));
  }
  ASSERT_EQ(dialogs_.openFolderQuestions(), 2U);
  dialogs_.folderAnswer(std::nullopt);
  EXPECT_EQ(receive(first), ok_);
  dialogs_.folderAnswer(Error{"gone"});
  EXPECT_EQ(receive(second), error("gone"));
  EXPECT_EQ(dialogs_.openFolderQuestions(), 0U);
}

TEST_F(ControlTest, AnUnknownServerIsGivenNoFolder) {
  EXPECT_EQ(ask("POST /servers/none/roots"),
            error("That is not a Zephyl this machine knows about."));
  EXPECT_TRUE(desktop_.folderRequests.empty());
}

TEST_F(ControlTest, AFolderThatNobodySharesAnyMoreIsRemoved) {
  const auto id = joinServer();
  agent_.answer("DELETE /api/roots", 200, R"({"roots":[]})");
  EXPECT_EQ(ask("POST /servers/" + id + "/roots/scope", R"({"root":"/a","shared":false})"), ok_);
  EXPECT_EQ(agent_.requestCount("DELETE /api/roots"), 1U);
}

TEST_F(ControlTest, AFolderThatIsNotSharedHasNoScope) {
  const auto id = joinServer();
  EXPECT_EQ(ask("POST /servers/" + id + "/roots/scope", R"({"root":"/c","shared":true})"),
            error("That folder is not shared from this machine."));
}

TEST_F(ControlTest, DiagnosticsTellEverySectionAndNoSecret) {
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
  const auto token = child("zephyl-desktop")->options().environment.at("ZEPHYL_ONBOARD_TOKEN");
  EXPECT_EQ(text.find(token), std::string::npos);
}

TEST_F(ControlTest, AScreenOfTheDesktopAppIsHandedOutOnce) {
  delegate_->openInShell("servers");
  EXPECT_EQ(ask("GET /status").at("request"), "servers");
  EXPECT_FALSE(ask("GET /status").as_object().contains("request"));
}

TEST_F(ControlTest, StartingTheTrayAgainShowsWhereToGoOn) {
  delegate_->applicationShouldHandleReopen();
  EXPECT_EQ(ask("GET /status").at("request"), "join");
  joinServer();
  delegate_->applicationShouldHandleReopen();
  EXPECT_EQ(ask("GET /status").at("request"), "servers");
}

TEST_F(ControlTest, ATargetThatIsNotFoundIsAnnouncedOncePerServer) {
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

TEST(ControlPort, ThatIsNoneEndsTheTrayBeforeItStartsAWindow) {
  const test::TrayWorld world;
  world.addProgram("packages/desktop/src-tauri/target/release/zephyl-desktop");
  const test::ScopedVariable port("ZEPHYL_ONBOARD_PORT", "65536");
  test::TestRuntime runtime;
  test::FakeDesktop desktop;
  test::FakeDialogs dialogs;
  const auto delegate = std::make_shared<AppDelegate>(runtime.runtime(), desktop, dialogs);
  EXPECT_EQ(delegate->exitStatus(), EXIT_SUCCESS);
  delegate->applicationDidFinishLaunching();
  runtime.mainLoop.run();  // returns because the tray has quit
  EXPECT_EQ(delegate->exitStatus(), EXIT_FAILURE);
  for (const auto& child : runtime.launcher.children()) {
    EXPECT_FALSE(child->options().executable.ends_with("zephyl-desktop"));
  }
  delegate->applicationWillTerminate();
}

}  // namespace
}  // namespace zephyl
