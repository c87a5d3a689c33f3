#include <algorithm>
#include <csignal>
#include <mutex>
#include <optional>

#include <gtest/gtest.h>

#include "Helpers/Dialogs/Client/DialogProcess.hpp"
#include "Helpers/Dialogs/Client/ProcessDialogs.hpp"
#include "Support/Eventually.hpp"
#include "Support/LogCapture.hpp"
#include "Support/ManualClock.hpp"
#include "Support/Processes.hpp"
#include "Support/TemporaryDirectory.hpp"
#include "System/Concurrency/MainLoop.hpp"
#include "System/Concurrency/Reactor.hpp"
#include "System/Files/Bundle.hpp"
#include "System/Processes/Guardian.hpp"
#include "System/Processes/SystemProcessLauncher.hpp"

namespace zephyl {
namespace {

using namespace std::chrono_literals;
using test::eventually;
using Answer = std::optional<AlertAnswer>;

/// Starts real children and forwards their output.
class ListeningLauncher final : public ProcessLauncher {
 public:
  explicit ListeningLauncher(ProcessLauncher& real) : real_(real) {}

  Result<std::shared_ptr<ChildProcess>> launch(ProcessOptions options) override {
    options.onOutput = [this, told = std::move(options.onOutput)](OutputLines lines) {
      {
        const std::scoped_lock lock(mutex_);
        heard_.insert(heard_.end(), lines.lines().begin(), lines.lines().end());
      }
      told(std::move(lines));
    };
    auto child = real_.launch(std::move(options));
    if (child) newest = *child;
    return child;
  }

  bool hasHeard(const std::string& line) {
    const std::scoped_lock lock(mutex_);
    return std::ranges::find(heard_, line) != heard_.end();
  }

  std::shared_ptr<ChildProcess> newest;

 private:
  ProcessLauncher& real_;
  std::mutex mutex_;
  std::vector<std::string> heard_;
};

/// The real program on an invisible screen. The clock does not advance, so no time-out expires.
class DialogsProgramTest : public ::testing::Test {
 protected:
  DialogsProgramTest() { std::signal(SIGPIPE, SIG_IGN); }

  /// Waits for the end of the program.
  void TearDown() override {
    handle_.reset();
    EXPECT_TRUE(ends());
  }

  void presentAlert() {
    const Alert alert{.heading = "Allow?", .buttons = {"Deny", "Allow"}, .safeButton = 0};
    handle_ =
        dialogs_.presentAlert(alert, [this](const Answer& answer) { answers_.push_back(answer); });
  }
  bool runUntil(const std::function<bool()>& condition) {
    return eventually([&] {
      mainLoop_.runPending();
      return condition();
    });
  }
  /// Waits until the program has written a line and the dialogs have handled it. Returns false if
  /// there is none.
  bool hears(const std::string& line) {
    const bool heard = runUntil([&] { return launcher_.hasHeard(line); });
    reactor_.run([] {});  // which forwards the line
    mainLoop_.runPending();
    return heard;
  }
  bool isAnswered() {
    return runUntil([&] { return !answers_.empty(); });
  }
  bool ends() {
    return runUntil([&] { return !launcher_.newest->isRunning(); });
  }
  void advance(Duration step) {
    clock_.advance(step, [this] { mainLoop_.runPending(); });
  }

  const test::TemporaryDirectory home_;
  const test::ScopedVariable variables_[4] = {
      test::ScopedVariable("QT_QPA_PLATFORM", "offscreen"),
      test::ScopedVariable("HOME", home_.path()),
      test::ScopedVariable("XDG_RUNTIME_DIR", home_.path()),
      test::ScopedVariable("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/bus")};
  test::ManualClock clock_;
  MainLoop mainLoop_;
  Guardian guardian_ = *Guardian::start();
  Reactor reactor_;
  SystemProcessLauncher children_{reactor_, guardian_};
  ListeningLauncher launcher_{children_};
  ProcessDialogs dialogs_{mainLoop_, clock_, launcher_, ZEPHYL_DIALOGS_PROGRAM};
  std::vector<Answer> answers_;
  Dialogs::Handle handle_;
};

TEST_F(DialogsProgramTest, ReportsWhenItIsShownAndAnswersPings) {
  presentAlert();
  ASSERT_TRUE(hears(R"({"shown":true})"));
  for (const std::string number : {"1", "2", "3"}) {
    advance(DialogProcess::pingInterval);
    EXPECT_TRUE(hears(R"({"pong":)" + number + "}"));
  }
  EXPECT_TRUE(answers_.empty());
}

TEST_F(DialogsProgramTest, EndsWhenTheTrayClosesIt) {
  presentAlert();
  ASSERT_TRUE(hears(R"({"shown":true})"));
  handle_.reset();
  EXPECT_TRUE(ends());
  EXPECT_TRUE(launcher_.hasHeard(R"({"hidden":true})"));
  mainLoop_.runPending();
  EXPECT_TRUE(answers_.empty());
}

TEST_F(DialogsProgramTest, MayBeClosedBeforeItIsShown) {
  presentAlert();
  handle_.reset();
  EXPECT_TRUE(ends());
  EXPECT_TRUE(answers_.empty());
}

TEST_F(DialogsProgramTest, ItsDeathCountsAsTheSafeAnswer) {
  presentAlert();
  ASSERT_TRUE(hears(R"({"shown":true})"));
  test::signalProcess(launcher_.newest->pid(), SIGKILL);
  ASSERT_TRUE(isAnswered());
  EXPECT_EQ(answers_, (std::vector<Answer>{AlertAnswer{0, ""}}));
}

TEST_F(DialogsProgramTest, AWindowThatHangsIsKilledAndAnsweredSafely) {
  presentAlert();
  ASSERT_TRUE(hears(R"({"shown":true})"));
  mainLoop_.runPending();
  test::signalProcess(launcher_.newest->pid(), SIGSTOP);
  advance(3 * DialogProcess::pingInterval);
  EXPECT_EQ(answers_, (std::vector<Answer>{AlertAnswer{0, ""}}));
  EXPECT_TRUE(ends());
}

TEST_F(DialogsProgramTest, WithoutAScreenNothingIsAnsweredAndTheNextDialogWorks) {
  const auto log = test::logOf([&] {
    const test::ScopedVariable x11("QT_QPA_PLATFORM", "xcb");
    const test::ScopedVariable none("DISPLAY", ":nothing");
    presentAlert();
    EXPECT_TRUE(isAnswered());
  });
  EXPECT_EQ(answers_, std::vector<Answer>{std::nullopt});
  EXPECT_NE(log.find("could not show its window: it ended with status 1"), std::string::npos);
  EXPECT_NE(log.find("[tray] zephyl-tray-dialogs: "), std::string::npos);
  presentAlert();
  EXPECT_TRUE(hears(R"({"shown":true})"));
}

TEST(DialogsProgram, IsFoundBesideTheTrayOrUnderItsPrefix) {
  const test::TemporaryDirectory directory;
  const Bundle bundle(directory / "prefix/bin/zephyl-tray");
  const std::string installed = directory / "prefix/libexec/zephyl-tray/zephyl-tray-dialogs";
  EXPECT_EQ(dialogsProgram(bundle), installed);
  directory.write("prefix/bin/zephyl-tray-dialogs", "#!/bin/sh\n", true);
  EXPECT_EQ(dialogsProgram(bundle), directory / "prefix/bin/zephyl-tray-dialogs");
}

}  // namespace
}  // namespace zephyl
