#include "ZephylTray/Control/ControlServer.hpp"

#include <random>
#include <thread>

#include <gtest/gtest.h>

#include "Support/Eventually.hpp"
#include "Support/LogCapture.hpp"
#include "Support/RawClient.hpp"
#include "System/Concurrency/MainLoop.hpp"
#include "System/Data/Text.hpp"

namespace zephyl {
namespace {

using namespace std::chrono_literals;
using test::RawClient;

/// The status line's code and the body of an answer.
struct Answer {
  int status = 0;
  json::Value body;

  static Answer of(const std::string& text) {
    const auto split = text.find("\r\n\r\n");
    if (split == std::string::npos) return {};
    const auto length = "Content-Length: " + std::to_string(text.size() - split - 4);
    EXPECT_NE(text.find(length), std::string::npos) << text;
    return {static_cast<int>(parseDecimal(text.substr(9, 3)).value_or(0)),
            *json::parse(text.substr(split + 4))};
  }
};

class ControlServerTest : public ::testing::Test {
 protected:
  void start() { ASSERT_TRUE(server_->start(port_)); }

  [[nodiscard]] std::string request(const std::string& line, const std::string& body = "") const {
    return line + " HTTP/1.1\r\nX-Zephyl-Onboard-Token: " + server_->token() +
           "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
  }
  /// Sends a request and runs the main thread until it is answered.
  Answer ask(const std::string& bytes) {
    const RawClient client(port_);
    client.send(bytes);
    while (!client.isReadable(1ms)) mainLoop_.runPending();
    return Answer::of(client.receiveAll());
  }
  Answer ask(const std::string& line, const std::string& body) { return ask(request(line, body)); }

  const int port_ = test::freePort();
  MainLoop mainLoop_;
  std::unique_ptr<ControlServer> server_ = std::make_unique<ControlServer>(mainLoop_);
};

TEST_F(ControlServerTest, HasATokenOfItsOwn) {
  const ControlServer other(mainLoop_);
  EXPECT_EQ(server_->token().size(), 32U);
  EXPECT_EQ(server_->token().find_first_not_of("0123456789abcdef"), std::string::npos);
  EXPECT_NE(server_->token(), other.token());
}

TEST_F(ControlServerTest, RefusesARequestWithoutTheToken) {
  start();
  for (const auto& header :
       std::vector<std::string>{"", "X-Zephyl-Onboard-Token: \r\n",
                                "X-Zephyl-Onboard-Token: " + upperCased(server_->token()) + "x\r\n",
                                "X-Zephyl-Onboard-Token: " + server_->token().substr(1) + "\r\n"}) {
    const auto answer = ask("GET /status HTTP/1.1\r\n" + header + "\r\n");
    EXPECT_EQ(answer.status, 403) << header;
    EXPECT_EQ(answer.body, (json::Object{{"error", "bad or missing onboarding token"}}));
  }
}

TEST_F(ControlServerTest, RefusesARequestWithoutTheTokenAsSoonAsItsHeadIsComplete) {
  start();
  EXPECT_EQ(ask("POST /invite HTTP/1.1\r\nContent-Length: 1000\r\n\r\n").status, 403);
  EXPECT_EQ(ask("POST /invite HTTP/1.1\r\nContent-Length: 1000\r\n\r\nsome of the body").status,
            403);
}

TEST_F(ControlServerTest, WaitsForTheBodyOfARequestThatHasTheToken) {
  start();
  const std::string whole = request("POST /invite", R"({"key":""})");
  const RawClient client(port_);
  client.send(whole.substr(0, whole.size() - 1));
  EXPECT_FALSE(client.isReadable(20ms));
  client.send(whole.substr(whole.size() - 1));
  while (!client.isReadable(1ms)) mainLoop_.runPending();
  EXPECT_EQ(Answer::of(client.receiveAll()).status, 200);
}

TEST_F(ControlServerTest, ListensOnlyWhenThePortWasFree) {
  EXPECT_FALSE(server_->isListening());
  start();
  EXPECT_TRUE(server_->isListening());
  ControlServer second(mainLoop_);
  test::logOf([&] { EXPECT_TRUE(second.start(port_)); });
  EXPECT_FALSE(second.isListening());
}

TEST_F(ControlServerTest, ReturnsAPendingRouteOnce) {
  server_->handlers.statusProvider = [] { return json::Object{{"running", true}}; };
  start();
  server_->setPendingRoute("join");
  server_->setPendingRoute("servers");
  EXPECT_EQ(ask("GET /status", "").body, (json::Object{{"running", true}, {"request", "servers"}}));
  EXPECT_EQ(ask("GET /status", "").body, (json::Object{{"running", true}}));
}

TEST_F(ControlServerTest, AnswersWithEmptyDocumentsWithoutHandlers) {
  start();
  EXPECT_EQ(ask("GET /status", "").body, json::Object());
  EXPECT_EQ(ask("GET /servers", "").body, (json::Object{{"servers", json::Array()}}));
  const std::vector<std::pair<std::string, std::string>> changes = {
      {"POST /invite", R"({"key":""})"},
      {"POST /servers/a/label", R"({"label":""})"},
      {"POST /servers/a/accent", R"({"accent":""})"},
      {"POST /servers/a/enabled", R"({"enabled":true})"},
      {"DELETE /servers/a", ""},
  };
  for (const auto& [line, body] : changes) {
    EXPECT_EQ(ask(line, body).body, (json::Object{{"ok", true}})) << line;
  }
  for (const char* line :
       {"GET /diagnostics", "POST /agent/restart", "GET /roots", "POST /servers/a/roots",
        "POST /servers/a/roots/scope", "GET /nothing", "GET /servers/a", "PUT /status"}) {
    const auto answer = ask(line, "");
    EXPECT_EQ(answer.status, 404) << line;
    EXPECT_EQ(answer.body, (json::Object{{"error", "no such endpoint"}})) << line;
  }
}

TEST_F(ControlServerTest, PassesIdAndFieldsToTheHandlerOnTheMainThread) {
  std::vector<std::string> told;
  server_->handlers.onSetLabel = [&](const std::string& id, const std::string& label) {
    EXPECT_TRUE(mainLoop_.isCurrent());
    told.push_back(id + "=" + label);
    return ControlServer::Failure();
  };
  start();
  EXPECT_EQ(ask("POST //servers/abc/label/", R"({"label":"x","more":1})").status, 200);
  EXPECT_EQ(ask("POST /servers/abc/label", R"({"label":""})").status, 200);
  EXPECT_EQ(told, (std::vector<std::string>{"abc=x", "abc="}));
}

TEST_F(ControlServerTest, FindsTheHandlerOfAScopeBeforeItReadsTheBody) {
  start();
  EXPECT_EQ(ask("POST /servers/a/roots/scope", "nonsense").status, 404);
  server_->handlers.onSetRootShared = [](const auto&, const auto&, bool, const auto& done) {
    done({});
  };
  EXPECT_EQ(ask("POST /servers/a/roots/scope", "nonsense").status, 400);
}

TEST_F(ControlServerTest, AnswersAnEmptyObjectIfTheDocumentIsNotUTF8) {
  server_->handlers.statusProvider = [] { return json::Object{{"url", "\xff"}}; };
  server_->handlers.onRemove = [](const auto&, const auto& done) { done("\xc3("); };
  start();
  const auto status = ask("GET /status", "");
  EXPECT_EQ(status.status, 200);
  EXPECT_EQ(status.body, json::Object());
  const auto removal = ask("DELETE /servers/a", "");
  EXPECT_EQ(removal.status, 400);
  EXPECT_EQ(removal.body, json::Object());
}

TEST_F(ControlServerTest, HandlesRequestsOneAtATimeInTheOrderOfCompletion) {
  std::vector<std::string> handled;
  server_->handlers.statusProvider = [&] {
    handled.emplace_back("status");
    return json::Object();
  };
  server_->handlers.rootsProvider = [&](const auto& done) {
    EXPECT_FALSE(mainLoop_.isCurrent());
    handled.emplace_back("roots");
    done(std::vector<json::Object>());
  };
  start();
  const RawClient early(port_);
  const RawClient first(port_);
  const RawClient second(port_);
  const std::string late = request("GET /roots");
  early.send(late.substr(0, late.size() - 1));
  first.send(request("GET /status"));
  ASSERT_TRUE(mainLoop_.waitForTask(10s));
  second.send(request("GET /roots"));
  EXPECT_FALSE(second.isReadable(20ms));
  EXPECT_TRUE(handled.empty()) << "the main thread has not handled the first one";
  mainLoop_.runPending();
  EXPECT_EQ(Answer::of(first.receiveAll()).status, 200);
  EXPECT_EQ(Answer::of(second.receiveAll()).status, 200);
  EXPECT_EQ(handled, (std::vector<std::string>{"status", "roots"}));
  early.send(late.substr(late.size() - 1));
  EXPECT_EQ(Answer::of(early.receiveAll()).status, 200);
}

TEST_F(ControlServerTest, RefusesABodyThatLacksAField) {
  server_->handlers.onSetRootShared = [](const auto&, const auto&, bool, const auto& done) {
    done({});
  };
  start();
  const std::vector<std::pair<std::string, std::string>> expectations = {
      {"POST /invite", "expected a JSON body with a \"key\" field"},
      {"POST /servers/a/label", "expected a \"label\" field"},
      {"POST /servers/a/accent", "expected an \"accent\" field"},
      {"POST /servers/a/enabled", "expected a boolean \"enabled\" field"},
      {"POST /servers/a/roots/scope", "expected a \"root\" string and a boolean \"shared\""},
  };
  for (const auto& [line, message] : expectations) {
    for (const char* body :
         {"", "{", "[]", "{}", "null", R"({"key":1,"label":true,"accent":null,"enabled":"true"})",
          R"({"root":"/r"})", R"({"shared":true})", R"({"root":1,"shared":true})"}) {
      const auto answer = ask(line, body);
      EXPECT_EQ(answer.status, 400) << line << " " << body;
      EXPECT_EQ(answer.body, (json::Object{{"error", message}})) << line << " " << body;
    }
  }
}

TEST_F(ControlServerTest, ReturnsTheErrorOfAHandler) {
  server_->handlers.onRemove = [](const auto&, const auto& done) { done("That server is gone."); };
  server_->handlers.rootsProvider = [](const auto& done) { done(Error{"no agent"}); };
  start();
  EXPECT_EQ(ask("DELETE /servers/a", "").status, 400);
  const auto roots = ask("GET /roots", "");
  EXPECT_EQ(roots.status, 502);
  EXPECT_EQ(roots.body, (json::Object{{"error", "no agent"}}));
}

TEST_F(ControlServerTest, AnswersAHandlerThatNeverCompletes) {
  server_->handlers.onAddRoot = [](const auto&, const auto&) {};
  start();
  EXPECT_EQ(ask("POST /servers/a/roots", "").body,
            (json::Object{{"error", ControlServer::shuttingDown}}));
}

TEST_F(ControlServerTest, RefusesAnInvalidPort) {
  EXPECT_EQ(test::logOf([this] { EXPECT_FALSE(server_->start(65536)); }),
            "[tray] the onboarding port 65536 is not between 0 and 65535\n");
  EXPECT_EQ(test::logOf([this] { EXPECT_FALSE(server_->start(-1)); }),
            "[tray] the onboarding port -1 is not between 0 and 65535\n");
}

TEST_F(ControlServerTest, ReportsAPortInUseAndContinues) {
  start();
  ControlServer second(mainLoop_);
  EXPECT_EQ(test::logOf([&] { EXPECT_TRUE(second.start(port_)); }),
            "[tray] could not start the onboarding listener: 127.0.0.1:" + std::to_string(port_) +
                ": Address already in use\n");
}

/// The main thread never handles a request, or handles it at that moment.
TEST_F(ControlServerTest, EndsAThousandTimesWithRequestsUnderWay) {
  std::minstd_rand random(1);
  for (int round = 0; round < 1000; ++round) {
    server_ = std::make_unique<ControlServer>(mainLoop_);
    server_->handlers.statusProvider = [] { return json::Object(); };
    server_->handlers.rootsProvider = [](const auto& done) { done(std::vector<json::Object>()); };
    start();
    const RawClient first(port_);
    const RawClient second(port_);
    const RawClient third(port_);
    first.send(request("GET /status"));
    second.send(request("GET /roots"));
    third.send(request("GET /status"));
    if (random() % 2 == 0) mainLoop_.waitForTask(1ms);
    if (random() % 4 == 0) mainLoop_.runPending();
    if (random() % 4 == 0) server_->cancel();
    server_.reset();
    mainLoop_.runPending();
    const std::string answer = first.receiveAll();
    EXPECT_EQ(answer.find("(silence)"), std::string::npos);
  }
}

TEST_F(ControlServerTest, AnswersWaitingRequestsWhenTheTrayShutsDown) {
  start();
  const RawClient client(port_);
  client.send(request("GET /status"));
  ASSERT_TRUE(mainLoop_.waitForTask(10s));
  server_->cancel();
  const auto answer = Answer::of(client.receiveAll());
  EXPECT_EQ(answer.status, 400);
  EXPECT_EQ(answer.body, (json::Object{{"error", ControlServer::shuttingDown}}));
}

}  // namespace
}  // namespace zephyl
