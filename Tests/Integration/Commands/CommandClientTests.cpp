#include "ZephylTray/Commands/Client/CommandClient.hpp"

#include <atomic>
#include <filesystem>
#include <map>
#include <mutex>
#include <thread>

#include "StandardStreams.hpp"
#include "Support/Eventually.hpp"
#include "Support/LogCapture.hpp"
#include "Support/TemporaryDirectory.hpp"
#include "System/Concurrency/Reactor.hpp"
#include "ZephylTray/App/SingleOwnerLock.hpp"
#include "ZephylTray/Commands/Protocol/CommandMessages.hpp"
#include "ZephylTray/Commands/Protocol/CommandRecords.hpp"
#include "ZephylTray/Commands/Server/CommandListener.hpp"
#include "ZephylTray/Registry/Servers.hpp"

namespace zephyl {
namespace {

using Kind = CommandReply::Kind;
using Replies = std::vector<CommandReply>;

/// The output and the exit status of a command.
struct Outcome {
  int status = -1;
  std::string output;
  std::string errors;
};

Outcome run(const CommandArguments& arguments) {
  Outcome outcome;
  outcome.output = test::outputOf(
      [&] { outcome.errors = test::logOf([&] { outcome.status = runCommand(arguments); }); });
  return outcome;
}

/// Runs commands in a private home. `answer` starts a tray that gives fixed answers.
class CommandClientTest : public ::testing::Test {
 protected:
  CommandClientTest() { std::filesystem::create_directories(Servers::baseDir()); }

  /// Sets the tray's replies to requests of this name, and starts the tray.
  void answer(const std::string& request, Replies replies) {
    const std::scoped_lock lock(mutex_);
    answers_[request] = std::move(replies);
    if (!listener_) listen();
  }
  /// Sets the result of requests of this name.
  template <typename Record>
  void answerWith(const std::string& request, const Record& record) {
    answer(request, {{Kind::accepted, {}}, {Kind::result, json::encode(record)}});
  }
  std::vector<std::string> requests() {
    const std::scoped_lock lock(mutex_);
    return requests_;
  }

  test::TemporaryDirectory directory_;
  test::ScopedVariable home_{"XDG_DATA_HOME", directory_ / "data"};
  test::ScopedVariable runtime_{"XDG_RUNTIME_DIR"};

 private:
  void listen() {
    auto socket = CommandSocket::listen(Servers::baseDir());
    ASSERT_TRUE(socket) << socket.error().message;
    listener_.emplace(
        reactor_, *std::move(socket), CommandListener::Options{},
        CommandListener::Handlers{
            .onRequest = [this](const auto& client, auto line) { handle(client, line); },
            .onClosed = [](std::uint64_t) {}});
  }
  void handle(const CommandListener::Client& client, std::string_view line) {
    const std::scoped_lock lock(mutex_);
    requests_.emplace_back(line);
    for (const auto& [request, replies] : answers_) {
      if (!line.starts_with("{\"" + request + "\"")) continue;
      for (const auto& reply : replies) {
        const bool last = &reply == &replies.back();
        last ? client.finish(encodeCommandReply(reply)) : client.send(encodeCommandReply(reply));
      }
    }
  }

  std::mutex mutex_;
  std::map<std::string, Replies> answers_;
  std::vector<std::string> requests_;
  Reactor reactor_;
  std::optional<CommandListener> listener_;
};

TEST_F(CommandClientTest, ReportsThatNoTrayIsRunning) {
  const auto plain = run({.verb = CommandVerb::status});
  EXPECT_EQ(plain.status, commandStatus::notRunning);
  EXPECT_EQ(plain.output, "");
  EXPECT_EQ(plain.errors,
            "zephyl-tray: Zephyl's tray is not running. Start it with `zephyl-tray`.\n");
  const auto asJSON = run({.verb = CommandVerb::status, .json = true});
  EXPECT_EQ(asJSON.status, commandStatus::notRunning);
  EXPECT_EQ(asJSON.output,
            "{\"error\":\"Zephyl's tray is not running. Start it with `zephyl-tray`.\"}\n");
  EXPECT_EQ(asJSON.errors, "");
}

TEST_F(CommandClientTest, ReportsATrayThatDoesNotAnswer) {
  const auto lock = SingleOwnerLock::acquire(Servers::baseDir() + "/tray.lock");
  const auto outcome = run({.verb = CommandVerb::open});
  EXPECT_EQ(outcome.status, commandStatus::notAnswering);
  EXPECT_NE(outcome.errors.find("(process " + std::to_string(::getpid()) + ") does not answer"),
            std::string::npos)
      << outcome.errors;
}

TEST_F(CommandClientTest, ReportsATrayThatReadsARequestAndDoesNotAnswer) {
  answer("status", {});
  const auto outcome = run({.verb = CommandVerb::status});
  EXPECT_EQ(outcome.status, commandStatus::notAnswering);
  EXPECT_EQ(outcome.errors, "zephyl-tray: Zephyl's tray does not answer.\n");
}

TEST_F(CommandClientTest, ReportsTheEndOfTheTray) {
  answer("open", {{Kind::accepted, {}}});
  const auto outcome = run({.verb = CommandVerb::open});
  EXPECT_EQ(outcome.status, commandStatus::failure);
  EXPECT_EQ(outcome.errors, "zephyl-tray: The tray has ended.\n");
}

TEST_F(CommandClientTest, TheStatusFailsIfSomethingNeedsAttention) {
  CommandStatus status{.mode = "headless", .summary = "reachable, 1 folder"};
  answerWith("status", status);
  auto outcome = run({.verb = CommandVerb::status});
  EXPECT_EQ(outcome.status, commandStatus::success);
  EXPECT_NE(outcome.output.find("reachable, 1 folder"), std::string::npos) << outcome.output;
  status.attention.push_back({"agentNotInstalled", "No agent.", "Install it."});
  answerWith("status", status);
  outcome = run({.verb = CommandVerb::status, .json = true});
  EXPECT_EQ(outcome.status, commandStatus::failure);
  EXPECT_EQ(outcome.output, json::compact(json::encode(status)) + "\n");
}

TEST_F(CommandClientTest, PrintsTheReasonOfARefusal) {
  answer("open", {{Kind::error, json::Value("The window is not installed.")}});
  const auto outcome = run({.verb = CommandVerb::open});
  EXPECT_EQ(outcome.status, commandStatus::failure);
  EXPECT_EQ(outcome.errors, "zephyl-tray: The window is not installed.\n");
  EXPECT_EQ(outcome.output, "");
}

TEST_F(CommandClientTest, RefusesAnAnswerThatIsNotTheRecord) {
  answer("servers", {{Kind::result, json::Value("text")}});
  const auto outcome = run({.verb = CommandVerb::servers});
  EXPECT_EQ(outcome.status, commandStatus::failure);
  EXPECT_NE(outcome.errors.find("The tray's answer could not be decoded"), std::string::npos);
  EXPECT_EQ(outcome.output, "");
}

TEST_F(CommandClientTest, ListsFoldersWithTheNamesOfTheirServers) {
  answerWith("servers", std::vector{CommandServerRecord{.id = "s1", .name = "Patient Hill"}});
  const std::vector folders{CommandFolder{.path = "/data", .name = "Data", .servers = {"s1"}}};
  answerWith("folders", folders);
  const auto outcome = run({.verb = CommandVerb::folders});
  EXPECT_EQ(outcome.status, commandStatus::success);
  EXPECT_NE(outcome.output.find("/data"), std::string::npos) << outcome.output;
  EXPECT_NE(outcome.output.find("Patient Hill"), std::string::npos) << outcome.output;
  const auto asJSON = run({.verb = CommandVerb::folders, .json = true});
  EXPECT_EQ(asJSON.output, json::compact(json::encode(folders)) + "\n");
  answer("servers", {{Kind::error, json::Value("no")}});
  EXPECT_EQ(run({.verb = CommandVerb::folders}).status, commandStatus::failure);
}

TEST_F(CommandClientTest, ListsServersAndRequests) {
  answerWith("servers", std::vector{CommandServerRecord{.id = "s1", .name = "Patient Hill"}});
  answerWith("requests", CommandPending{.requests = {{.id = "r1", .target = "/etc"}}});
  EXPECT_NE(run({.verb = CommandVerb::servers}).output.find("Patient Hill"), std::string::npos);
  const auto pending = run({.verb = CommandVerb::requests});
  EXPECT_EQ(pending.status, commandStatus::success);
  EXPECT_NE(pending.output.find("/etc"), std::string::npos) << pending.output;
}

TEST_F(CommandClientTest, PrintsEveryEventWhileItWatches) {
  const CommandStatus first{.summary = "starting"};
  const CommandStatus second{.summary = "reachable"};
  answer("watch", {{Kind::event, json::encode(first)},
                   {Kind::event, json::encode(second)},
                   {Kind::error, json::Value("The tray is ending.")}});
  const auto plain = run({.verb = CommandVerb::watch});
  EXPECT_EQ(plain.status, commandStatus::failure);
  EXPECT_EQ(plain.errors, "zephyl-tray: The tray is ending.\n");
  const auto starting = plain.output.find("starting");
  const auto reachable = plain.output.find("reachable");
  EXPECT_LT(starting, reachable) << plain.output;
  EXPECT_NE(reachable, std::string::npos);
  EXPECT_EQ(plain.output[2], ':') << "each line begins with the time";
  EXPECT_EQ(run({.verb = CommandVerb::watch, .json = true}).output,
            json::compact(json::encode(first)) + "\n" + json::compact(json::encode(second)) + "\n");
}

TEST_F(CommandClientTest, PrintsALogOnceOrAsItGrows) {
  const auto lines = json::encode(std::vector<std::string>{"one", "two"});
  const auto more = json::encode(std::vector<std::string>{"three"});
  answer("logs", {{Kind::accepted, {}}, {Kind::result, lines}});
  auto outcome = run({.verb = CommandVerb::logs, .operands = {"s1"}});
  EXPECT_EQ(outcome.status, commandStatus::success);
  EXPECT_EQ(outcome.output, "one\ntwo\n");
  EXPECT_NE(requests().back().find("\"server\":\"s1\""), std::string::npos);
  answer("logs", {{Kind::event, lines}, {Kind::event, more}, {Kind::result, {}}});
  outcome = run({.verb = CommandVerb::logs, .follow = true});
  EXPECT_EQ(outcome.status, commandStatus::success);
  EXPECT_EQ(outcome.output, "one\ntwo\nthree\n");
}

TEST_F(CommandClientTest, SendsADecision) {
  answerWith("answer", true);
  const auto denied = run({.verb = CommandVerb::answer, .operands = {"r1", "deny"}});
  EXPECT_EQ(denied.output, "Denied.\n");
  EXPECT_EQ(requests().back(), R"({"answer":{"id":"r1","decision":"deny"}})");
  const auto allowed = run({.verb = CommandVerb::answer, .operands = {"r1", "once"}});
  EXPECT_EQ(allowed.output, "Allowed once.\n");
  EXPECT_EQ(requests().back(), R"({"answer":{"id":"r1","decision":"once"}})");
}

TEST_F(CommandClientTest, APermanentExceptionRequiresATerminal) {
  answerWith("answer", true);
  const test::StandardInput input("ALWAYS ALLOW\n");
  const auto outcome = run({.verb = CommandVerb::answer, .operands = {"r1", "always"}});
  EXPECT_EQ(outcome.status, commandStatus::failure);
  EXPECT_NE(outcome.errors.find("requires a terminal"), std::string::npos);
  EXPECT_TRUE(requests().empty());
}

TEST_F(CommandClientTest, APermanentExceptionIsShownBeforeThePhraseIsTyped) {
  answerWith("answer", true);
  answerWith("requests", CommandPending{.requests = {{.id = "r1", .target = "/etc"}}});
  test::Terminal terminal;
  const std::jthread user([&] {
    EXPECT_TRUE(test::eventually([&] { return terminal.shown().ends_with("\n> "); }));
    EXPECT_NE(terminal.shown().find("/etc"), std::string::npos);
    terminal.type("ALWAYS ALLOW\n");
  });
  int status = -1;
  const auto output = test::outputOf([&] {
    status = runCommand({.verb = CommandVerb::answer, .operands = {"r1", "always"}});
  });
  EXPECT_EQ(status, commandStatus::success);
  EXPECT_EQ(output, "Allowed permanently.\n");
  EXPECT_EQ(requests().back(),
            R"({"answer":{"id":"r1","decision":"always","confirm":"ALWAYS ALLOW"}})");
}

TEST_F(CommandClientTest, APermanentExceptionRequiresAPendingRequest) {
  answerWith("requests", CommandPending{.requests = {{.id = "r2"}}});
  test::Terminal terminal;
  EXPECT_EQ(runCommand({.verb = CommandVerb::answer, .operands = {"r1", "always"}}),
            commandStatus::failure);
  EXPECT_NE(terminal.shown().find("No request has this id."), std::string::npos);
}

TEST_F(CommandClientTest, JoinsWithTheKeyOfTheStandardInput) {
  answerWith("join", true);
  {
    const test::StandardInput input("inv_v2_key\n");
    const auto outcome = run({.verb = CommandVerb::join});
    EXPECT_EQ(outcome.status, commandStatus::success);
    EXPECT_NE(outcome.output.find("The server was added."), std::string::npos);
    EXPECT_EQ(requests(), std::vector<std::string>{R"({"join":"inv_v2_key"})"});
  }
  const test::StandardInput input("");
  EXPECT_EQ(run({.verb = CommandVerb::join}).status, commandStatus::failure);
  EXPECT_EQ(requests().size(), 1U);
}

TEST_F(CommandClientTest, ConfirmsWhatTheTrayDoes) {
  for (const auto* request : {"open", "restartAgent", "restartTailnet"}) answerWith(request, true);
  const auto opening = run({.verb = CommandVerb::open, .operands = {"settings"}});
  EXPECT_EQ(opening.output, "The window is opening.\n");
  EXPECT_EQ(requests().back(), R"({"open":{"screen":"settings"}})");
  EXPECT_EQ(run({.verb = CommandVerb::restartAgent}).output, "The agent is restarting.\n");
  EXPECT_EQ(run({.verb = CommandVerb::restartTailnet}).output,
            "The private network is restarting.\n");
  EXPECT_EQ(requests().back().find("server"), std::string::npos);
  EXPECT_EQ(run({.verb = CommandVerb::doctor}).status, commandStatus::wrongUse);
}

TEST_F(CommandClientTest, QuitReturnsWhenTheTrayHasEnded) {
  answerWith("quit", true);
  auto lock = SingleOwnerLock::acquire(Servers::baseDir() + "/tray.lock");
  std::atomic<bool> ended = false;
  const std::jthread tray([&] {
    EXPECT_TRUE(test::eventually([this] { return !requests().empty(); }));
    ended = true;
    const auto released = std::move(lock);
  });
  const auto outcome = run({.verb = CommandVerb::quit});
  EXPECT_TRUE(ended);
  EXPECT_EQ(outcome.status, commandStatus::success);
  EXPECT_EQ(outcome.output, "The tray has ended.\n");
}

TEST_F(CommandClientTest, PrintsTheDiagnosticsSorted) {
  answer("diagnostics", {{Kind::result, json::Object{{"b", 1}, {"a", 2}}}});
  const auto outcome = run({.verb = CommandVerb::diagnostics});
  EXPECT_EQ(outcome.status, commandStatus::success);
  EXPECT_LT(outcome.output.find("\"a\""), outcome.output.find("\"b\""));
}

}  // namespace
}  // namespace zephyl
