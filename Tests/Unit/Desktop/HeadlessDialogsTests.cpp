#include "Desktop/Headless/HeadlessDialogs.hpp"

#include <gtest/gtest.h>

#include "Support/LogCapture.hpp"
#include "System/Concurrency/MainLoop.hpp"

namespace zephyl {
namespace {

TEST(HeadlessDialogs, AnAlertCannotBeShown) {
  MainLoop mainLoop;
  HeadlessDialogs dialogs(mainLoop);
  int answers = 0;
  const auto handle = dialogs.presentAlert({.heading = "Why?", .buttons = {"OK"}},
                                           [&](const std::optional<AlertAnswer>& answer) {
                                             EXPECT_FALSE(answer);
                                             ++answers;
                                           });
  EXPECT_EQ(answers, 0);
  mainLoop.runPending();
  EXPECT_EQ(answers, 1);
}

TEST(HeadlessDialogs, ADestroyedDialogIsNotAnswered) {
  MainLoop mainLoop;
  HeadlessDialogs dialogs(mainLoop);
  dialogs.presentAlert({.buttons = {"OK"}}, [](const auto&) { ADD_FAILURE(); }).reset();
  mainLoop.runPending();
}

TEST(HeadlessDialogs, AFolderCannotBeChosen) {
  MainLoop mainLoop;
  HeadlessDialogs dialogs(mainLoop);
  std::string why;
  const auto handle = dialogs.chooseFolder(
      {}, [&](const Result<std::optional<std::string>>& folder) { why = folder.error().message; });
  mainLoop.runPending();
  EXPECT_EQ(why, "There is no desktop to choose a folder on.");
}

TEST(HeadlessDialogs, ALogWindowLogsItsMessageAndTheEndOfItsLog) {
  MainLoop mainLoop;
  HeadlessDialogs dialogs(mainLoop);
  std::string log;
  for (int i = 1; i <= 20; ++i) log += "line " + std::to_string(i) + "\n";
  int closed = 0;
  Dialogs::Handle handle;
  const auto text = test::logOf([&] {
    handle = dialogs.presentLogWindow(
        {.title = "Agent Exited Unexpectedly", .message = "Why.", .fullText = log},
        [&](LogWindowEvent event) { closed += event == LogWindowEvent::closed ? 1 : 0; });
  });
  EXPECT_TRUE(text.starts_with("[tray] Agent Exited Unexpectedly: Why.\n[tray]   | line 9\n"))
      << text;
  EXPECT_TRUE(text.ends_with("[tray]   | line 20\n")) << text;
  mainLoop.runPending();
  EXPECT_EQ(closed, 1);
}

}  // namespace
}  // namespace zephyl
