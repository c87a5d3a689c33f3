#include "System/Processes/HelperProcess.hpp"

#include <csignal>
#include <memory>
#include <variant>

#include <gtest/gtest.h>

#include "Support/FakeLauncher.hpp"
#include "Support/LogCapture.hpp"
#include "System/Concurrency/MainLoop.hpp"

namespace zephyl {
namespace {

using Lines = std::vector<std::string>;

struct Question {
  std::string text;
};
BOOST_DESCRIBE_STRUCT(Question, (), (text))
struct Stop {};
BOOST_DESCRIBE_STRUCT(Stop, (), ())
struct Answer {
  std::int64_t value = 0;
};
BOOST_DESCRIBE_STRUCT(Answer, (), (value))

struct Protocol {
  using Request = Question;
  using Order = std::variant<Stop>;
  using Report = std::variant<Answer>;
};
constexpr std::array<std::string_view, 1> messageNames(const Protocol::Order*) {
  return {"stop"};
}
constexpr std::array<std::string_view, 1> messageNames(const Protocol::Report*) {
  return {"answer"};
}

class HelperProcessTest : public ::testing::Test {
 protected:
  void start(int maxErrorLines = 100) {
    HelperOptions options{.name = "helper", .maxErrorLines = maxErrorLines};
    options.process.executable = "/opt/helper";
    helper_ = std::make_unique<HelperProcess<Protocol>>(
        mainLoop_, launcher_, std::move(options), Question{"how many?"},
        HelperProcess<Protocol>::Events{
            .reported =
                [this](Protocol::Report report) {
                  events_.push_back("answer " + std::to_string(std::get<Answer>(report).value));
                  if (endsWithFirstReport_) helper_.reset();
                },
            .failed = [this](const std::string& reason) { events_.push_back(reason); },
            .ended = [this](const std::string& how) { events_.push_back(how); }});
  }
  void print(Lines lines) {
    program().print(std::move(lines));
    mainLoop_.runPending();
  }
  test::FakeChild& program() { return *launcher_.newest(); }
  Lines takeEvents() { return std::exchange(events_, {}); }

  MainLoop mainLoop_;
  test::FakeLauncher launcher_;
  std::unique_ptr<HelperProcess<Protocol>> helper_;
  Lines events_;
  bool endsWithFirstReport_ = false;
};

TEST_F(HelperProcessTest, SendsTheRequestAndOrdersAsLines) {
  start();
  helper_->send(Stop{});
  EXPECT_EQ(program().options().executable, "/opt/helper");
  EXPECT_EQ(program().input(), (Lines{R"({"text":"how many?"})", R"({"stop":true})"}));
  EXPECT_FALSE(program().inputEnded());
  helper_->endInput();
  EXPECT_TRUE(program().inputEnded());
}

TEST_F(HelperProcessTest, ReportsOnTheMainLoopInOrder) {
  start();
  program().print({R"({"answer":1})", R"({"answer":2})"});
  program().exit({ExitStatus::Reason::exited, 3});
  EXPECT_EQ(takeEvents(), Lines{});
  mainLoop_.runPending();
  EXPECT_EQ(takeEvents(), (Lines{"answer 1", "answer 2", "it ended with status 3"}));
}

TEST_F(HelperProcessTest, ReportsInvalidLines) {
  start();
  print({"garbage", R"({"stop":true})"});
  const auto events = takeEvents();
  ASSERT_EQ(events.size(), 2U);
  EXPECT_TRUE(events[0].starts_with("it sent an invalid message: not valid JSON")) << events[0];
  EXPECT_EQ(events[1], "it sent an invalid message: not one of the known messages");
  EXPECT_TRUE(program().isRunning());
  helper_->kill();
  mainLoop_.runPending();
  EXPECT_EQ(takeEvents(), Lines{"it ended by signal " + std::to_string(SIGKILL)});
}

TEST_F(HelperProcessTest, ReportsAFailedStartAsynchronously) {
  launcher_.failWith("/opt/helper: No such file or directory");
  start();
  helper_->send(Stop{});
  helper_->endInput();
  helper_->kill();
  EXPECT_EQ(takeEvents(), Lines{});
  mainLoop_.runPending();
  EXPECT_EQ(takeEvents(), Lines{"/opt/helper: No such file or directory"});
}

TEST_F(HelperProcessTest, ReportsNothingAfterItWasDestroyedByAReport) {
  endsWithFirstReport_ = true;
  start();
  print({R"({"answer":1})", R"({"answer":2})"});
  EXPECT_TRUE(program().inputEnded());
  program().exit({});
  mainLoop_.runPending();
  EXPECT_EQ(takeEvents(), Lines{"answer 1"});
}

TEST_F(HelperProcessTest, LogsItsStandardErrorUpToALimit) {
  start(2);
  const auto log = test::logOf([&] {
    program().printError({"one", "two"});
    program().printError({"three"});
  });
  EXPECT_EQ(log, "[tray] helper: one\n[tray] helper: two\n");
}

}  // namespace
}  // namespace zephyl
