#include <optional>
#include <random>

#include <gtest/gtest.h>

#include "Helpers/Dialogs/Client/DialogProcess.hpp"
#include "Helpers/Dialogs/Client/ProcessDialogs.hpp"
#include "Support/FakeLauncher.hpp"
#include "Support/LogCapture.hpp"
#include "Support/ManualClock.hpp"
#include "System/Concurrency/MainLoop.hpp"

namespace zephyl {
namespace {

using namespace std::chrono_literals;
using Answer = std::optional<AlertAnswer>;

constexpr std::size_t safeButton = 0;

/// One alert with random events, and a model of the expected answer.
class RandomAlert {
 public:
  explicit RandomAlert(unsigned seed) : random_(seed) {
    if (pick(20) == 0) launcher_.failWith("no such program");
    handle_ = dialogs_.presentAlert({.buttons = {"Deny", "Allow once", "Always allow…"}},
                                    [this](const Answer& answer) { answers_.push_back(answer); });
  }

  void run() {
    for (int step = 0; step < 30; ++step) {
      happen();
      // Delivers the output to the main thread.
      if (pick(3) != 0) mainLoop_.runPending();
    }
    clock_.advance(1min, [this] { mainLoop_.runPending(); });
  }

  void check() const {
    ASSERT_LE(answers_.size(), 1U);
    if (!closed_) {
      ASSERT_EQ(answers_.size(), 1U) << "the result would be lost";
    }
    if (answers_.empty()) return;
    const Answer& answer = answers_.front();
    if (answer && answer->button != safeButton) {
      EXPECT_EQ(pressed_, answer->button) << "only the user presses buttons";
    }
    if (!shown_) {
      EXPECT_EQ(answer, std::nullopt) << "an alert that was not shown is not answered";
    }
    EXPECT_FALSE(answeredAfterClosing_);
  }

 private:
  int pick(int count) { return std::uniform_int_distribution(0, count - 1)(random_); }

  void happen() {
    switch (pick(12)) {
      case 0:
      case 1:
        return print(R"({"shown":true})");
      case 2:
        return press(static_cast<std::size_t>(pick(4)));
      case 3:
        return print(R"({"pong":)" + std::to_string(pick(4)) + "}");
      case 4:
        return print(pick(4) == 0 ? "garbage" : R"({"hidden":true})");
      case 5:
        if (pick(4) == 0) end();
        return;
      case 6:
        if (pick(4) == 0) close();
        return;
      default:
        clock_.advance(std::chrono::milliseconds(pick(3000)), [this] { mainLoop_.runPending(); });
    }
  }

  bool isRunning() { return !launcher_.children().empty() && launcher_.newest()->isRunning(); }

  void print(const std::string& line) {
    if (!isRunning()) return;
    launcher_.newest()->print({line});
    shown_ = shown_ || line.find("shown") != std::string::npos;
  }

  void press(std::size_t button) {
    if (!isRunning()) return;
    if (shown_ && !pressed_ && button < 3) pressed_ = button;
    print(R"({"answer":{"button":)" + std::to_string(button) + R"(,"text":""}})");
  }

  void end() {
    if (isRunning()) launcher_.newest()->exit({});
  }

  void close() {
    const auto before = answers_.size();
    handle_.reset();
    closed_ = true;
    mainLoop_.runPending();
    answeredAfterClosing_ = answeredAfterClosing_ || answers_.size() != before;
  }

  std::mt19937 random_;
  test::ManualClock clock_;
  MainLoop mainLoop_;
  test::FakeLauncher launcher_;
  ProcessDialogs dialogs_{mainLoop_, clock_, launcher_, "dialogs"};
  Dialogs::Handle handle_;

  std::vector<Answer> answers_;
  bool shown_ = false;
  bool closed_ = false;
  bool answeredAfterClosing_ = false;
  std::optional<std::size_t> pressed_;  // the first button, once it is shown
};

TEST(ProcessDialogsProperties, HoldForAnyOrderOfEvents) {
  (void)test::logOf([] {
    for (unsigned seed = 0; seed < 10'000; ++seed) {
      SCOPED_TRACE(seed);
      RandomAlert alert(seed);
      alert.run();
      alert.check();
      if (testing::Test::HasFailure()) return;
    }
  });
}

}  // namespace
}  // namespace zephyl
