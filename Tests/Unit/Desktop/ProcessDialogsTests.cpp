#include "Helpers/Dialogs/Client/ProcessDialogs.hpp"

#include <csignal>
#include <optional>
#include <utility>

#include <gtest/gtest.h>

#include "Helpers/Dialogs/Client/DialogProcess.hpp"
#include "Support/FakeLauncher.hpp"
#include "Support/LogCapture.hpp"
#include "Support/ManualClock.hpp"
#include "System/Concurrency/MainLoop.hpp"
#include "System/Data/JSON.hpp"

namespace zephyl {
namespace {

using namespace std::chrono_literals;
using test::FakeChild;
using Answer = std::optional<AlertAnswer>;
using Folder = Result<std::optional<std::string>>;
using Lines = std::vector<std::string>;

const Alert alert{.style = Alert::Style::critical,
                  .heading = "Allow?",
                  .explanation = "Ana wants\nto read",
                  .buttons = {"Deny", "Allow once", "Always allow…"}};

const LogWindow logWindow{.title = "Agent Exited",
                          .message = "with code 3",
                          .shownText = "one\n…\ntwo",
                          .fullText = "one\nand\ntwo"};

constexpr auto shown = R"({"shown":true})";
constexpr auto closed = R"({"logEvent":"closed"})";

class ProcessDialogsTest : public ::testing::Test {
 protected:
  Dialogs::Handle presentAlert(const Alert& which = alert) {
    return dialogs_.presentAlert(which,
                                 [this](const Answer& answer) { answers_.push_back(answer); });
  }
  Dialogs::Handle chooseFolder() {
    return dialogs_.chooseFolder({"Share", "Choose a folder"},
                                 [this](const Folder& folder) { folders_.push_back(folder); });
  }
  Dialogs::Handle presentLogWindow(const LogWindow& which = logWindow) {
    return dialogs_.presentLogWindow(which,
                                     [this](LogWindowEvent event) { events_.push_back(event); });
  }

  FakeChild& program() { return *launcher_.newest(); }
  void say(const std::string& line) {
    program().print({line});
    mainLoop_.runPending();
  }
  void end(ExitStatus status = {}) {
    program().exit(status);
    mainLoop_.runPending();
  }
  void advance(Duration step) {
    clock_.advance(step, [this] { mainLoop_.runPending(); });
  }
  /// Advances time, and answers every ping meanwhile.
  void advanceAnswering(Duration step) {
    clock_.advance(step, [this] {
      mainLoop_.runPending();
      const auto order = json::decodeText<DialogOrder>(program().input().back());
      const auto* const ping = order ? std::get_if<Ping>(&*order) : nullptr;
      if (ping != nullptr) say(json::compact(json::encode(DialogReport(Pong{ping->value}))));
    });
  }

  test::ManualClock clock_;
  MainLoop mainLoop_;
  test::FakeLauncher launcher_;
  ProcessDialogs dialogs_{mainLoop_, clock_, launcher_, "/opt/zephyl-tray-dialogs"};
  std::vector<Answer> answers_;
  std::vector<Folder> folders_;
  std::vector<LogWindowEvent> events_;
};

TEST_F(ProcessDialogsTest, ForwardsTheActivationToken) {
  std::string token = "token-1";
  ProcessDialogs dialogs(mainLoop_, clock_, launcher_, "dialogs",
                         [&] { return std::exchange(token, ""); });
  Alert requested = alert;
  requested.requestedByUser = true;
  const auto first = dialogs.presentAlert(requested, [](const Answer&) {});
  EXPECT_EQ(program().options().environment.at("XDG_ACTIVATION_TOKEN"), "token-1");
  EXPECT_EQ(program().options().environment.at("DESKTOP_STARTUP_ID"), "token-1");
  const auto second = dialogs.presentAlert(requested, [](const Answer&) {});
  EXPECT_FALSE(program().options().environment.contains("XDG_ACTIVATION_TOKEN"));
}

TEST_F(ProcessDialogsTest, AnUnrequestedWindowGetsATokenOnlyWhenTheUserAsksForIt) {
  std::string token = "token-1";
  ProcessDialogs dialogs(mainLoop_, clock_, launcher_, "dialogs",
                         [&] { return std::exchange(token, ""); });
  const auto handle = dialogs.presentAlert(alert, [](const Answer&) {});
  EXPECT_FALSE(program().options().environment.contains("XDG_ACTIVATION_TOKEN"));
  EXPECT_NE(program().input().at(0).find(R"("requestedByUser":false)"), std::string::npos);
  handle->bringToFront();
  EXPECT_EQ(program().input().at(1), R"({"bringToFront":{"activationToken":"token-1"}})");
  handle->bringToFront();
  EXPECT_EQ(program().input().at(2), R"({"bringToFront":{"activationToken":""}})");
}

TEST_F(ProcessDialogsTest, AnAlertMayCarryTheActivationTokenOfAnEarlierAction) {
  std::string token = "token-1";
  ProcessDialogs dialogs(mainLoop_, clock_, launcher_, "dialogs",
                         [&] { return std::exchange(token, ""); });
  Alert later = alert;
  later.requestedByUser = true;
  later.activationToken = dialogs.consumeActivationToken();
  token = "token-2";
  const auto handle = dialogs.presentAlert(later, [](const Answer&) {});
  EXPECT_EQ(program().options().environment.at("XDG_ACTIVATION_TOKEN"), "token-1");
  EXPECT_EQ(program().input().at(0).find("token"), std::string::npos);
  EXPECT_EQ(token, "token-2") << "it belongs to another window";
}

TEST_F(ProcessDialogsTest, WritesTheRequestAsOneLine) {
  Alert withField = alert;
  withField.textField = Alert::TextField{"ALWAYS ALLOW", 300};
  withField.safeButton = 1;
  withField.permittingButtons = {1, 2};
  const auto handle = presentAlert(withField);
  EXPECT_EQ(program().options().executable, "/opt/zephyl-tray-dialogs");
  EXPECT_EQ(program().input(),
            Lines{R"({"alert":{"style":"critical","heading":"Allow?",)"
                  R"("explanation":"Ana wants\nto read",)"
                  R"("buttons":["Deny","Allow once","Always allow…"],"safeButton":1,)"
                  R"("textField":{"placeholder":"ALWAYS ALLOW","width":300},)"
                  R"("permittingButtons":[1,2],"requestedByUser":false}})"});
  withField.requestedByUser = true;
  const auto requested = presentAlert(withField);
  EXPECT_NE(program().input().at(0).find(R"("requestedByUser":true)"), std::string::npos);
  EXPECT_FALSE(program().inputEnded());
}

TEST_F(ProcessDialogsTest, SendsProgressInOrderAndNothingAfterTheEnd) {
  Alert withBar{.heading = "Downloading", .buttons = {"Cancel"}};
  withBar.progress = Progress{.fraction = 0, .text = "0 of 9 MB"};
  auto handle = presentAlert(withBar);
  EXPECT_NE(program().input().at(0).find(R"("progress":{"fraction":0E0,"text":"0 of 9 MB"})"),
            std::string::npos)
      << program().input().at(0);
  handle->showProgress({.fraction = 0.5, .text = "4.5 of 9 MB"});  // before it is on screen
  say(shown);
  handle->showProgress({.text = "Verifying…"});
  EXPECT_EQ(program().input().at(1), R"({"progress":{"fraction":5E-1,"text":"4.5 of 9 MB"}})");
  EXPECT_EQ(program().input().at(2), R"({"progress":{"text":"Verifying…"}})");
  end({ExitStatus::Reason::signalled, SIGSEGV});
  EXPECT_EQ(answers_, (std::vector<Answer>{AlertAnswer{.button = 0}})) << "its death cancels";
  handle->showProgress({.text = "on and on"});
  EXPECT_EQ(program().input().size(), 3U);
}

TEST_F(ProcessDialogsTest, SendsNoProgressToAProgramThatCouldNotBeStarted) {
  launcher_.failWith("/opt/zephyl-tray-dialogs: No such file or directory");
  const auto handle = presentAlert();
  handle->showProgress({.text = "somewhere"});
  mainLoop_.runPending();
  handle->showProgress({.text = "somewhere else"});
  EXPECT_EQ(answers_, std::vector<Answer>{std::nullopt});
}

TEST_F(ProcessDialogsTest, AnswersWithTheButtonThatWasPressed) {
  const auto handle = presentAlert();
  say(shown);
  EXPECT_TRUE(answers_.empty());
  say(R"({"answer":{"button":1,"text":"typed"}})");
  EXPECT_EQ(answers_, (std::vector<Answer>{AlertAnswer{1, "typed"}}));
  EXPECT_TRUE(program().inputEnded());
  end();
  advance(1h);
  EXPECT_EQ(answers_.size(), 1U);
}

TEST_F(ProcessDialogsTest, IgnoresASecondAnswer) {
  const auto handle = presentAlert();
  say(shown);
  program().print({R"({"answer":{"button":0,"text":""}})", R"({"answer":{"button":1,"text":""}})"});
  mainLoop_.runPending();
  EXPECT_EQ(answers_, (std::vector<Answer>{AlertAnswer{0, ""}}));
}

TEST_F(ProcessDialogsTest, AnAlertThatCannotBeStartedIsNotAnswered) {
  launcher_.failWith("/opt/zephyl-tray-dialogs: No such file or directory");
  Dialogs::Handle handle;
  const auto log = test::logOf([&] {
    handle = presentAlert();
    EXPECT_TRUE(answers_.empty());  // not before it returns
    mainLoop_.runPending();
  });
  EXPECT_EQ(answers_, std::vector<Answer>{std::nullopt});
  EXPECT_EQ(log,
            "[tray] zephyl-tray-dialogs could not show its window: "
            "/opt/zephyl-tray-dialogs: No such file or directory\n");
}

TEST_F(ProcessDialogsTest, AnAlertWhoseProgramEndsBeforeItIsShownIsNotAnswered) {
  const auto handle = presentAlert();
  const auto log = test::logOf([&] { end({ExitStatus::Reason::exited, 1}); });
  EXPECT_EQ(answers_, std::vector<Answer>{std::nullopt});
  EXPECT_EQ(log, "[tray] zephyl-tray-dialogs could not show its window: it ended with status 1\n");
}

TEST_F(ProcessDialogsTest, AnAlertThatIsNotShownWithinFiveSecondsIsNotAnswered) {
  const auto handle = presentAlert();
  advance(4999ms);
  EXPECT_TRUE(answers_.empty());
  EXPECT_TRUE(program().isRunning());
  advance(1ms);
  EXPECT_EQ(answers_, std::vector<Answer>{std::nullopt});
  EXPECT_FALSE(program().isRunning());
  say(shown);  // too late
  say(R"({"answer":{"button":1,"text":""}})");
  EXPECT_EQ(answers_.size(), 1U);
}

TEST_F(ProcessDialogsTest, AnAnswerBeforeTheWindowIsShownIsIgnored) {
  const auto handle = presentAlert();
  say(R"({"answer":{"button":1,"text":""}})");
  EXPECT_EQ(answers_, std::vector<Answer>{std::nullopt});
  EXPECT_FALSE(program().isRunning());
}

TEST_F(ProcessDialogsTest, AnInvalidMessageBeforeTheWindowIsShownIsNoAnswer) {
  const auto handle = presentAlert();
  say("Segmentation fault");
  EXPECT_EQ(answers_, std::vector<Answer>{std::nullopt});
  EXPECT_FALSE(program().isRunning());
}

TEST_F(ProcessDialogsTest, TheDeathOfAShownWindowCountsAsTheSafeAnswer) {
  Alert invite = alert;
  invite.safeButton = 2;
  const auto handle = presentAlert(invite);
  say(shown);
  const auto log = test::logOf([&] { end({ExitStatus::Reason::signalled, SIGSEGV}); });
  EXPECT_EQ(answers_, (std::vector<Answer>{AlertAnswer{2, ""}}));
  EXPECT_EQ(log, "[tray] zephyl-tray-dialogs lost its window: it ended by signal 11\n");
}

TEST_F(ProcessDialogsTest, AnInvalidMessageOfAShownWindowCountsAsTheSafeAnswer) {
  for (const std::string garbage :
       {"approve", "{}", R"({"answer":{"button":3,"text":""}})",
        R"({"answer":{"button":-1,"text":""}})", R"({"answer":{"button":1}})",
        R"({"logEvent":"closed"})", R"({"folder":"/"})", R"({"shown":true})"}) {
    answers_.clear();
    const auto handle = presentAlert();
    say(shown);
    EXPECT_TRUE(answers_.empty());
    say(garbage);
    EXPECT_EQ(answers_, (std::vector<Answer>{AlertAnswer{0, ""}})) << garbage;
    EXPECT_FALSE(program().isRunning()) << garbage;
  }
}

TEST_F(ProcessDialogsTest, AWindowThatAnswersPingsStays) {
  const auto handle = presentAlert();
  say(shown);
  advanceAnswering(1h);
  EXPECT_TRUE(answers_.empty());
  EXPECT_TRUE(program().isRunning());
  EXPECT_GE(program().input().size(), 1000U);
  say(R"({"answer":{"button":1,"text":""}})");
  EXPECT_EQ(answers_, (std::vector<Answer>{AlertAnswer{1, ""}}));
}

TEST_F(ProcessDialogsTest, TwoMissedPingsCountAsTheSafeAnswer) {
  const auto handle = presentAlert();
  say(shown);
  advanceAnswering(1min);
  const auto before = program().input().size();
  advance(3 * DialogProcess::pingInterval - 1ms);
  EXPECT_TRUE(answers_.empty());
  EXPECT_EQ(program().input().size(), before + 2);
  const auto log = test::logOf([&] { advance(1ms); });
  EXPECT_EQ(answers_, (std::vector<Answer>{AlertAnswer{0, ""}}));
  EXPECT_FALSE(program().isRunning());
  EXPECT_EQ(log, "[tray] zephyl-tray-dialogs lost its window: it does not answer pings\n");
}

TEST_F(ProcessDialogsTest, OneMissedPingIsForgiven) {
  const auto handle = presentAlert();
  say(shown);
  for (int round = 0; round < 5; ++round) {
    advance(2 * DialogProcess::pingInterval);
    const auto order = json::decodeText<DialogOrder>(program().input().back());
    say(R"({"pong":)" + std::to_string(std::get<Ping>(order.value()).value) + "}");
  }
  EXPECT_TRUE(answers_.empty());
}

TEST_F(ProcessDialogsTest, ABlockedMainThreadMissesNoPing) {
  const auto handle = presentAlert();
  say(shown);
  clock_.advance(1min);  // and nothing runs on the main thread
  mainLoop_.runPending();
  EXPECT_TRUE(answers_.empty());
  advanceAnswering(1min);
  EXPECT_TRUE(answers_.empty());
}

TEST_F(ProcessDialogsTest, IsNotPingedBeforeItIsShownNorAfterItsAnswer) {
  const auto handle = presentAlert();
  advance(4s);
  EXPECT_EQ(program().input().size(), 1U);
  say(shown);
  say(R"({"answer":{"button":0,"text":""}})");
  advance(1min);
  EXPECT_EQ(program().input().size(), 1U);
}

TEST_F(ProcessDialogsTest, AnAlertThatTheTrayClosesIsNotAnswered) {
  for (const bool wasShown : {false, true}) {
    auto handle = presentAlert();
    if (wasShown) say(shown);
    handle.reset();
    EXPECT_TRUE(program().inputEnded());
    say(R"({"answer":{"button":1,"text":""}})");
    end();
    advance(1min);
  }
  EXPECT_TRUE(answers_.empty());
}

TEST_F(ProcessDialogsTest, AnAnswerDuringCloseIsDropped) {
  auto handle = presentAlert();
  say(shown);
  program().print({R"({"answer":{"button":1,"text":""}})"});
  handle.reset();
  mainLoop_.runPending();
  EXPECT_TRUE(answers_.empty());
}

TEST_F(ProcessDialogsTest, TheDialogMayBeDestroyedByItsOwnAnswer) {
  Dialogs::Handle handle;
  int answers = 0;
  handle = dialogs_.presentAlert(alert, [&](const Answer&) {
    ++answers;
    handle.reset();
  });
  say(shown);
  say(R"({"answer":{"button":1,"text":""}})");
  handle = dialogs_.presentAlert(alert, [&](const Answer&) {
    ++answers;
    handle.reset();
  });
  end();
  EXPECT_EQ(answers, 2);
}

TEST_F(ProcessDialogsTest, AWindowThatDoesNotCloseIsKilled) {
  auto handle = presentAlert();
  say(shown);
  handle.reset();
  advance(DialogProcess::hiddenTimeout - 1ms);
  EXPECT_TRUE(program().isRunning());
  advance(1ms);
  EXPECT_FALSE(program().isRunning());
}

TEST_F(ProcessDialogsTest, AProgramWithAHiddenWindowMayKeepTheClipboard) {
  auto handle = presentLogWindow();
  say(shown);
  program().print({closed, R"({"hidden":true})"});
  mainLoop_.runPending();
  handle.reset();
  advance(1h);
  EXPECT_TRUE(program().isRunning());
  EXPECT_EQ(events_, std::vector{LogWindowEvent::closed});
}

TEST_F(ProcessDialogsTest, ItsStandardErrorGoesToTheLogUpToALimit) {
  const auto handle = presentAlert();
  const auto log = test::logOf([&] {
    for (int line = 0; line < 1000; ++line) program().printError({"trouble\x1b[1m"});
    mainLoop_.runPending();
  });
  const std::string first = "[tray] zephyl-tray-dialogs: trouble␛[1m\n";
  EXPECT_EQ(log.substr(0, first.size()), first);
  EXPECT_EQ(log.size(), first.size() * DialogProcess::maxErrorLines);
  EXPECT_TRUE(program().isRunning());
}

TEST_F(ProcessDialogsTest, ReportsTheChosenFolder) {
  const auto handle = chooseFolder();
  EXPECT_EQ(program().input(),
            Lines{R"({"folderPicker":{"prompt":"Share","message":"Choose a folder"}})"});
  say(shown);
  say(R"({"folder":"/home/ana/project"})");
  ASSERT_EQ(folders_.size(), 1U);
  EXPECT_EQ(folders_[0].value(), "/home/ana/project");
}

TEST_F(ProcessDialogsTest, ACancelledOrLostFolderPickerChoosesNothing) {
  const auto cancelled = chooseFolder();
  say(shown);
  say(R"({"folder":""})");
  const auto lost = chooseFolder();
  say(shown);
  end({ExitStatus::Reason::signalled, SIGKILL});
  ASSERT_EQ(folders_.size(), 2U);
  for (const auto& folder : folders_) EXPECT_EQ(folder.value(), std::nullopt);
}

TEST_F(ProcessDialogsTest, AFolderPickerThatCannotBeShownReportsAnError) {
  const auto handle = chooseFolder();
  advance(DialogProcess::shownTimeout);
  ASSERT_EQ(folders_.size(), 1U);
  EXPECT_EQ(folders_[0].error().message, "The folder picker could not be shown.");
}

TEST_F(ProcessDialogsTest, ReportsActionsOnALogWindowUntilItIsClosed) {
  const auto handle = presentLogWindow();
  EXPECT_EQ(program().input(), Lines{R"({"logWindow":{"title":"Agent Exited",)"
                                     R"("message":"with code 3","shownText":"one\n…\ntwo",)"
                                     R"("fullText":"one\nand\ntwo","requestedByUser":false}})"});
  say(shown);
  for (const std::string event : {"openInCursor", "openInVSCode", "openInTextEdit", "closed"}) {
    say(R"({"logEvent":")" + event + R"("})");
  }
  using enum LogWindowEvent;
  EXPECT_EQ(events_, (std::vector{openInCursor, openInVSCode, openInTextEdit, closed}));
  EXPECT_TRUE(program().inputEnded());
}

TEST_F(ProcessDialogsTest, ALogWindowThatCannotBeShownGoesToTheLog) {
  LogWindow window{.title = "Tailnet Logs", .message = "lost", .shownText = "", .fullText = "0"};
  for (int line = 1; line < 20; ++line) window.fullText += "\n" + std::to_string(line);
  const auto handle = presentLogWindow(window);
  const auto log = test::logOf([&] { end({ExitStatus::Reason::exited, 1}); });
  EXPECT_NE(log.find("[tray] Tailnet Logs: lost\n[tray]   | 8\n[tray]   | 9\n"), std::string::npos);
  EXPECT_TRUE(log.ends_with("[tray]   | 19\n"));
  EXPECT_EQ(events_, std::vector{LogWindowEvent::closed});
}

TEST_F(ProcessDialogsTest, ALogWindowThatWasShownAndLostIsClosed) {
  const auto handle = presentLogWindow();
  say(shown);
  const auto log = test::logOf([&] { end({ExitStatus::Reason::signalled, SIGSEGV}); });
  EXPECT_EQ(log, "[tray] zephyl-tray-dialogs lost its window: it ended by signal 11\n");
  EXPECT_EQ(events_, std::vector{LogWindowEvent::closed});
}

TEST_F(ProcessDialogsTest, ALogWindowMayBeReplacedFromItsOwnEvent) {
  Dialogs::Handle handle;
  handle = dialogs_.presentLogWindow(logWindow, [&](LogWindowEvent) { handle.reset(); });
  say(shown);
  say(R"({"logEvent":"openInCursor"})");
  EXPECT_TRUE(program().inputEnded());
}

TEST_F(ProcessDialogsTest, SeveralDialogsAreOpenSideBySide) {
  const auto first = presentAlert();
  const auto second = presentLogWindow();
  say(shown);
  ASSERT_EQ(launcher_.children().size(), 2U);
  launcher_.children()[0]->print({shown, R"({"answer":{"button":2,"text":""}})"});
  say(closed);
  EXPECT_EQ(answers_, (std::vector<Answer>{AlertAnswer{2, ""}}));
  EXPECT_EQ(events_, std::vector{LogWindowEvent::closed});
}

TEST_F(ProcessDialogsTest, InvalidUTF8IsShownWithReplacements) {
  Alert broken = alert;
  broken.explanation = "a\xFF\nb";
  const auto handle = presentAlert(broken);
  const auto request = json::decodeText<DialogRequest>(program().input().at(0));
  ASSERT_TRUE(request) << request.error().message;
  EXPECT_EQ(std::get<Alert>(*request).explanation, "a\uFFFD\nb");
}

TEST_F(ProcessDialogsTest, LeavesNoTimer) {
  { const auto handle = presentAlert(); }
  const auto handle = presentAlert();
  say(shown);
  say(R"({"answer":{"button":1,"text":""}})");
  advance(DialogProcess::hiddenTimeout);
  EXPECT_EQ(clock_.pendingTimers(), 0U);
}

}  // namespace
}  // namespace zephyl
