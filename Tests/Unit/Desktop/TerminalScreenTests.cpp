#include "Desktop/Terminal/TerminalScreen.hpp"

#include <gtest/gtest.h>

#include "CanvasText.hpp"
#include "Desktop/Terminal/TerminalDialogs.hpp"
#include "Support/ManualClock.hpp"
#include "Support/TemporaryDirectory.hpp"

namespace zephyl {
namespace {

using namespace std::chrono_literals;

/// A terminal that accepts plain text without styles.
class FakeOutput final : public TerminalOutput {
 public:
  [[nodiscard]] ScreenSize size() const override { return screenSize; }
  [[nodiscard]] bool isBusy() const override { return busy; }
  void write(std::string_view bytes) override {
    written += bytes;
    ++writes;
  }

  /// Returns the output since the last call.
  std::string take() { return std::exchange(written, {}); }

  ScreenSize screenSize{24, 80};
  bool busy = false;
  std::string written;
  int writes = 0;
};

class TerminalScreenTest : public ::testing::Test {
 protected:
  TerminalScreenTest() {
    screen_->setMenu(
        {{.key = "open", .title = "Open Zephyl", .action = MenuAction(std::string("open"))},
         {.key = "quit", .title = "Quit Zephyl", .action = MenuAction(std::string("quit"))}});
    screen_->events.menu.chosen = [this](const MenuAction& action) {
      chosen_.push_back(*action.as<std::string>());
    };
    mainLoop_.runPending();
  }

  void press(const std::string& bytes) {
    screen_->receive(bytes);
    mainLoop_.runPending();
  }
  void advance(Duration step) {
    clock_.advance(step, [this] {
      mainLoop_.runPending();
      mainLoop_.runPending();  // the drawing that a timer has requested
    });
  }
  /// Returns the output for all events since the last call.
  std::string drawn() {
    mainLoop_.runPending();
    return output_.take();
  }
  /// Returns the whole screen.
  std::string screen() {
    mainLoop_.runPending();
    output_.take();
    screen_->resized();
    return drawn();
  }
  bool shows(const std::string& text) { return screen().find(text) != std::string::npos; }

  Dialogs::Handle present(const Alert& alert) {
    auto dialog = dialogs_.presentAlert(alert, [this](const std::optional<AlertAnswer>& answer) {
      answers_.push_back(answer ? static_cast<int>(answer->button) : -1);
    });
    mainLoop_.runPending();
    return dialog;
  }

  MainLoop mainLoop_;
  test::ManualClock clock_;
  FakeOutput output_;
  std::shared_ptr<TerminalScreen> screen_ =
      std::make_shared<TerminalScreen>(TerminalScreen::Services{mainLoop_, clock_, output_},
                                       *TerminalType::load("vt100", true), TerminalCapabilities{});
  TerminalDialogs dialogs_{mainLoop_, screen_};
  std::vector<std::string> chosen_;
  std::vector<int> answers_;
};

const Alert accessRequest{.style = Alert::Style::critical,
                          .heading = "Allow access?",
                          .buttons = {"Deny", "Allow once"},
                          .permittingButtons = {1},
                          .requestedByUser = true};

/// The same alert, but unrequested.
Alert unrequested() {
  Alert alert = accessRequest;
  alert.requestedByUser = false;
  return alert;
}

TEST_F(TerminalScreenTest, DrawsOnceForAllChangesInOneTurn) {
  drawn();
  const int before = output_.writes;
  screen_->setTitle(" 3");
  screen_->setDescription("reachable, 3 folders");
  screen_->setIcon(StatusIcon::busy);
  const auto text = drawn();
  EXPECT_EQ(output_.writes, before + 1);
  EXPECT_NE(text.find("reachable, 3 folders"), std::string::npos);
  EXPECT_NE(text.find("busy"), std::string::npos);
  EXPECT_EQ(text.find("Open Zephyl"), std::string::npos) << "it has not changed";
}

TEST_F(TerminalScreenTest, IsIdleWhileNothingChanges) {
  screen_->setDescription("reachable");
  drawn();
  screen_->setDescription("reachable");
  screen_->setMenu(
      {{.key = "open", .title = "Open Zephyl", .action = MenuAction(std::string("open"))},
       {.key = "quit", .title = "Quit Zephyl", .action = MenuAction(std::string("quit"))}});
  EXPECT_EQ(drawn(), "");
  EXPECT_EQ(clock_.pendingTimers(), 0U);
}

TEST_F(TerminalScreenTest, DrawsOnlyAVisibleProgressBar) {
  const auto download = present({.heading = "Downloading",
                                 .buttons = {"Cancel"},
                                 .progress = Progress{.fraction = 0, .text = "0.0 of 4.0 MB"}});
  EXPECT_TRUE(shows("0.0 of 4.0 MB"));
  download->showProgress({.fraction = 0.5, .text = "2.0 of 4.0 MB"});
  EXPECT_TRUE(shows("2.0 of 4.0 MB"));
  advance(1s);
  press("\r");
  EXPECT_EQ(answers_, std::vector<int>{0});
  drawn();
  download->showProgress({.fraction = 0.75, .text = "3.0 of 4.0 MB"});
  EXPECT_EQ(drawn(), "");
}

TEST_F(TerminalScreenTest, DoesNotDrawForASlowTerminal) {
  drawn();
  output_.busy = true;
  screen_->setDescription("one");
  screen_->setDescription("two");
  EXPECT_EQ(drawn(), "");
  output_.busy = false;
  screen_->drained();
  EXPECT_NE(drawn().find("two"), std::string::npos);
}

TEST_F(TerminalScreenTest, TheMenuGetsTheKeys) {
  press("\x1bOB\r");
  EXPECT_EQ(chosen_, std::vector<std::string>{"quit"});
}

TEST_F(TerminalScreenTest, ADialogGetsTheKeysAndAnswersOnce) {
  const auto dialog = present(accessRequest);
  EXPECT_TRUE(shows("Allow access?"));
  advance(AnswerGuard::requestedDelay);
  press("\t\r\r");
  EXPECT_EQ(answers_, std::vector<int>{1});
  EXPECT_EQ(chosen_, std::vector<std::string>{"open"}) << "the second key is handled by the menu";
}

TEST_F(TerminalScreenTest, AKeyPressedWhileADialogAppearsIsNoAnswer) {
  const auto dialog = present(accessRequest);
  press("\r \x1b[A");
  EXPECT_EQ(answers_, std::vector<int>{});
  EXPECT_EQ(chosen_, std::vector<std::string>{});
  advance(AnswerGuard::requestedDelay);
  press("\r");
  EXPECT_EQ(answers_, std::vector<int>{0});
}

TEST_F(TerminalScreenTest, OngoingTypingDoesNotAnswerAnUnrequestedDialog) {
  const auto dialog = present(unrequested());
  EXPECT_TRUE(shows("[ Deny ]"));
  for (const std::string key :
       {"j", "e", "c", "t", "\t", " ", "\r", "\x1b[C", "\r", " ", "\t", "\r"}) {
    advance(150ms);
    press(key);
  }
  EXPECT_EQ(answers_, std::vector<int>{});
  EXPECT_EQ(chosen_, std::vector<std::string>{});
  advance(InputGuard::quiet - 1ms);
  EXPECT_FALSE(shows("[›Deny ]"));
  advance(1ms);
  EXPECT_TRUE(shows("[›Deny ]"));
  press("\r");
  EXPECT_EQ(answers_, std::vector<int>{0});
  EXPECT_EQ(clock_.pendingTimers(), 0U);
}

TEST_F(TerminalScreenTest, KeysThatWaitedWhileTheTrayWasHeldUpDoNotAnswer) {
  const auto dialog = present(unrequested());
  for (const bool keysFirst : {true, false}) {
    clock_.advance(InputGuard::settling + 1s, [] {});
    if (!keysFirst) mainLoop_.runPending();
    press("\r");
    EXPECT_EQ(answers_, std::vector<int>{});
  }
  advance(InputGuard::quiet);
  press("\r");
  EXPECT_EQ(answers_, std::vector<int>{0});
}

TEST_F(TerminalScreenTest, ADialogIgnoresKeysBeforeItIsDrawn) {
  advance(1s);
  output_.busy = true;
  const auto dialog = present(accessRequest);
  advance(10s);
  press("\r");
  EXPECT_EQ(answers_, std::vector<int>{});
  output_.busy = false;
  screen_->drained();
  press("\r");
  EXPECT_EQ(answers_, std::vector<int>{}) << "it has just appeared";
  advance(AnswerGuard::requestedDelay);
  press("\r");
  EXPECT_EQ(answers_, std::vector<int>{0});
}

TEST_F(TerminalScreenTest, TheNextDialogIgnoresTheKeysOfThePreviousOne) {
  const auto first = present(unrequested());
  const auto second = present(unrequested());
  advance(InputGuard::settling);
  press("\r\r\r");
  EXPECT_EQ(answers_, std::vector<int>{0});
  advance(InputGuard::settling - 1ms);
  press("\r");
  advance(InputGuard::quiet - 1ms);
  press("\r");
  EXPECT_EQ(answers_, std::vector<int>{0});
  advance(InputGuard::quiet);
  press("\r");
  EXPECT_EQ(answers_, (std::vector<int>{0, 0}));
}

TEST_F(TerminalScreenTest, EachActivationOfTheTerminalRestartsTheGuard) {
  const std::string focusIn = "\x1b[I";
  const std::string focusOut = "\x1b[O";
  for (const auto& alert : {unrequested(), accessRequest}) {
    answers_.clear();
    const auto dialog = present(alert);
    advance(10s);
    press(focusOut + focusIn);
    EXPECT_TRUE(shows("[ Deny ]"));
    press("\t \r");
    EXPECT_EQ(answers_, std::vector<int>{});
    advance(InputGuard::settling);
    EXPECT_TRUE(shows("[›Deny ]"));
    press("\r");
    EXPECT_EQ(answers_, std::vector<int>{0});
  }
  press(focusIn);
  EXPECT_EQ(chosen_, std::vector<std::string>{});
}

TEST_F(TerminalScreenTest, AnUnrequestedLogIsNotClosedByOngoingTyping) {
  std::vector<LogWindowEvent> events;
  const auto dialog = dialogs_.presentLogWindow(
      {.title = "Agent Exited"}, [&](LogWindowEvent event) { events.push_back(event); });
  mainLoop_.runPending();
  advance(InputGuard::settling - 1ms);
  press("wq");
  EXPECT_TRUE(events.empty());
  advance(InputGuard::quiet);
  press("q");
  EXPECT_EQ(events, std::vector<LogWindowEvent>{LogWindowEvent::closed});
}

TEST_F(TerminalScreenTest, EscapeIsRecognizedAfterAPause) {
  const auto dialog = present(accessRequest);
  advance(AnswerGuard::requestedDelay);
  press("\x1b");
  EXPECT_EQ(answers_, std::vector<int>{});
  advance(TerminalScreen::keyDelay);
  EXPECT_EQ(answers_, std::vector<int>{0});
  EXPECT_EQ(clock_.pendingTimers(), 0U);
}

TEST_F(TerminalScreenTest, AlertsAreShownOneAfterTheOther) {
  const auto first = present(accessRequest);
  const auto second = present({.heading = "Second", .buttons = {"OK"}});
  EXPECT_FALSE(shows("Second"));
  advance(AnswerGuard::requestedDelay);
  press("\r");
  EXPECT_TRUE(shows("Second"));
  press("\r");
  EXPECT_EQ(answers_, std::vector<int>{0}) << "it has just appeared";
  advance(InputGuard::settling);
  press("\r");
  EXPECT_EQ(answers_, (std::vector<int>{0, 0}));
}

TEST_F(TerminalScreenTest, AnotherAlertDoesNotHoldBackARequest) {
  const auto prompt = present({.heading = "Join", .buttons = {"Join", "Cancel"}});
  const auto first = present(unrequested());
  const auto second = present(unrequested());
  EXPECT_TRUE(shows("Allow access?"));
  EXPECT_FALSE(shows("Join"));
  press("\r");
  EXPECT_EQ(answers_, std::vector<int>{}) << "the key was meant for the prompt";
  for (int i = 0; i < 2; ++i) {
    EXPECT_TRUE(shows("Allow access?"));
    advance(2s);
    press("\r");
  }
  EXPECT_EQ(answers_, (std::vector<int>{0, 0}));
  EXPECT_TRUE(shows("Join"));
}

TEST_F(TerminalScreenTest, ADismissedDialogIsNotAnswered) {
  auto dialog = present(accessRequest);
  dialog.reset();
  EXPECT_FALSE(shows("Allow access?"));
  advance(1s);
  press("\r");
  EXPECT_EQ(answers_, std::vector<int>{});
  EXPECT_EQ(chosen_, std::vector<std::string>{"open"});
}

TEST_F(TerminalScreenTest, AtTheEndEveryDialogCountsAsNotShown) {
  const auto first = present(accessRequest);
  const auto second = present(accessRequest);
  int closed = 0;
  const auto log = dialogs_.presentLogWindow(
      {.title = "Log"}, [&](LogWindowEvent event) { closed += event == LogWindowEvent::closed; });
  screen_->end();
  EXPECT_EQ(answers_, (std::vector<int>{-1, -1}));
  EXPECT_EQ(closed, 1);
  output_.take();
  screen_->setDescription("later");
  EXPECT_EQ(drawn(), "");
}

TEST_F(TerminalScreenTest, WithoutAScreenDialogsAreHeadless) {
  screen_.reset();
  const auto dialog = present(accessRequest);
  EXPECT_EQ(answers_, std::vector<int>{-1});
}

TEST_F(TerminalScreenTest, ANotificationExpires) {
  screen_->post({.identifier = "1", .title = "Zephyl: approval needed", .body = "Ana wants it."});
  EXPECT_TRUE(shows("Zephyl: approval needed: Ana wants it."));
  advance(NoticeLine::brightFor + NoticeLine::dimFor - 1ms);
  EXPECT_TRUE(shows("Ana wants it."));
  advance(1ms);
  EXPECT_FALSE(shows("Ana wants it."));
  EXPECT_EQ(clock_.pendingTimers(), 0U);
}

TEST_F(TerminalScreenTest, ANotificationCanBeRemovedAndChosen) {
  std::string activated;
  screen_->events.notificationActivated = [&](const std::string& id) { activated = id; };
  screen_->post({.identifier = "1", .title = "First"});
  screen_->post({.identifier = "2", .title = "Second", .actionTitle = "Review…"});
  EXPECT_TRUE(shows("Second  [n] Review…"));
  press("n");
  EXPECT_EQ(activated, "2");
  EXPECT_TRUE(shows("First"));
  press("n");
  EXPECT_EQ(activated, "2") << "the first row cannot be chosen";
  screen_->removeNotification("1");
  EXPECT_FALSE(shows("First"));
}

TEST_F(TerminalScreenTest, TheLogOpensWithAKeyAndCountsNewLines) {
  screen_->appendLog({"[tray] one", "two \x1b[2J"});
  EXPECT_TRUE(shows("l log (2 new)"));
  EXPECT_EQ(screen_->unseenLog().size(), 2U);
  press("l");
  EXPECT_TRUE(shows("two ␛[2J"));
  drawn();
  screen_->appendLog({"three"});
  screen_->appendLog({"four"});
  EXPECT_EQ(drawn(), "");
  const int before = output_.writes;
  advance(TerminalScreen::logInterval);
  const auto both = drawn();
  EXPECT_EQ(output_.writes, before + 1);
  EXPECT_NE(both.find("three"), std::string::npos);
  EXPECT_NE(both.find("four"), std::string::npos);
  EXPECT_EQ(screen_->unseenLog(), std::vector<std::string>{});
  std::string written;
  screen_->events.writeLog = [&](const std::string& text) { written = text; };
  press("w");
  EXPECT_EQ(written, "[tray] one\ntwo ␛[2J\nthree\nfour\n");
  press("q");
  EXPECT_TRUE(shows("Open Zephyl"));
}

TEST_F(TerminalScreenTest, ALogWindowShowsTheExcerptAndOnRequestAllOfIt) {
  std::vector<LogWindowEvent> events;
  const auto dialog =
      dialogs_.presentLogWindow({.title = "Tailnet Logs",
                                 .message = "It failed.",
                                 .shownText = "excerpt",
                                 .fullText = "whole",
                                 .requestedByUser = true},
                                [&](LogWindowEvent event) { events.push_back(event); });
  EXPECT_TRUE(shows("excerpt"));
  EXPECT_TRUE(shows("It failed."));
  press("f");
  EXPECT_TRUE(shows("whole"));
  press("wq");
  EXPECT_EQ(events, std::vector<LogWindowEvent>{LogWindowEvent::openInTextEdit})
      << "it has just appeared";
  advance(AnswerGuard::requestedDelay);
  press("q");
  EXPECT_EQ(events.back(), LogWindowEvent::closed);
  EXPECT_TRUE(shows("Open Zephyl"));
}

TEST_F(TerminalScreenTest, TheTopmostViewGetsTheKeys) {
  press("l");
  std::vector<LogWindowEvent> events;
  const auto dialog = dialogs_.presentLogWindow(
      {.title = "Agent Exited"}, [&](LogWindowEvent event) { events.push_back(event); });
  EXPECT_TRUE(shows("Agent Exited"));
  advance(InputGuard::settling);
  press("q");
  EXPECT_EQ(events, std::vector<LogWindowEvent>{LogWindowEvent::closed});
  EXPECT_FALSE(shows("Open Zephyl")) << "the log is still there";
  press("q");
  EXPECT_TRUE(shows("Open Zephyl"));
}

TEST_F(TerminalScreenTest, AFolderPromptRepeatsUntilThePathExists) {
  const test::TemporaryDirectory directory;
  std::optional<std::string> folder;
  const auto dialog = dialogs_.chooseFolder(
      {.prompt = "Share", .message = "Choose a folder"},
      [&](const Result<std::optional<std::string>>& answer) { folder = *answer; });
  EXPECT_TRUE(shows("Choose a folder"));
  advance(AnswerGuard::requestedDelay);
  press("\x15" + directory.path() + "/none\r");
  EXPECT_TRUE(shows("none is not a folder."));
  advance(AnswerGuard::requestedDelay);
  press("\x15" + directory.path() + "/\r");
  EXPECT_EQ(folder, directory.path());
}

TEST_F(TerminalScreenTest, TheMenuFitsOnTheSmallestScreen) {
  for (int rows = 0; rows < 26; ++rows) {
    for (int columns = 0; columns < 90; columns += 7) {
      output_.screenSize = {rows, columns};
      screen_->resized();
      const auto text = drawn();
      if (rows >= 4 && columns >= 14) {
        EXPECT_NE(text.find("Open Zephyl"), std::string::npos);
      }
    }
  }
}

}  // namespace
}  // namespace zephyl
