#include "ZephylTray/Actions/LogWindows.hpp"

#include <gtest/gtest.h>

#include "Support/FakeDialogs.hpp"

namespace zephyl {
namespace {

/// Log windows with fake files and editors.
class LogWindowsTest : public ::testing::Test {
 protected:
  test::FakeDialogs dialogs_;
  std::optional<std::string> path_ = "/tmp/log";
  std::vector<std::string> written_;
  std::vector<std::pair<std::string, Editor>> opened_;
  std::shared_ptr<LogWindows> windows_ = std::make_shared<LogWindows>(LogWindows::Port{
      .present = [this](const auto& window,
                        auto tell) { return dialogs_.presentLogWindow(window, tell); },
      .write =
          [this](const auto& text) {
            written_.push_back(text);
            return path_;
          },
      .open = [this](const auto& path, Editor editor) { opened_.emplace_back(path, editor); },
  });
};

TEST_F(LogWindowsTest, ShowsAnExcerptAndCopiesTheWholeLog) {
  windows_->presentLogWindow({.title = "Logs", .message = "It failed.", .requestedByUser = true},
                             std::vector<std::string>(50, "line"));
  ASSERT_EQ(dialogs_.logWindows().size(), 1U);
  const auto window = dialogs_.logWindows()[0];
  EXPECT_EQ(window.title, "Logs");
  EXPECT_EQ(window.message, "It failed.");
  EXPECT_TRUE(window.requestedByUser);
  EXPECT_NE(window.shownText.find("TRUNCATED"), std::string::npos);
  EXPECT_EQ(window.fullText.size(), 50 * 5 - 1U);
}

TEST_F(LogWindowsTest, AWindowReplacesTheOneThatIsOpen) {
  windows_->presentLogWindow({.title = "first"}, {});
  windows_->presentLogWindow({.title = "second"}, {});
  ASSERT_EQ(dialogs_.logWindows().size(), 1U);
  EXPECT_EQ(dialogs_.logWindows()[0].title, "second");
  dialogs_.tellLogWindow(LogWindowEvent::closed);
  EXPECT_TRUE(dialogs_.logWindows().empty());
}

TEST_F(LogWindowsTest, MakesControlCharactersVisibleOnTheClipboardAndInTheFile) {
  windows_->presentLogWindow({}, {"\x1b]0;title\x07 and \u202E", "b"});
  EXPECT_EQ(dialogs_.logWindows().at(0).fullText, "␛]0;title␇ and \\u202e\nb");
  dialogs_.tellLogWindow(LogWindowEvent::openInCursor);
  EXPECT_EQ(written_, std::vector<std::string>{"␛]0;title␇ and \\u202e\nb"});
}

TEST_F(LogWindowsTest, OpensTheLogInTheEditorThatTheUserHasChosen) {
  windows_->presentLogWindow({}, {"a"});
  dialogs_.tellLogWindow(LogWindowEvent::openInCursor);
  dialogs_.tellLogWindow(LogWindowEvent::openInVSCode);
  dialogs_.tellLogWindow(LogWindowEvent::openInTextEdit);
  EXPECT_EQ(opened_, (std::vector<std::pair<std::string, Editor>>{{"/tmp/log", Editor::cursor},
                                                                  {"/tmp/log", Editor::vsCode},
                                                                  {"/tmp/log", Editor::textEdit}}));
}

TEST_F(LogWindowsTest, OpensNoEditorIfTheLogCannotBeWritten) {
  path_ = std::nullopt;
  windows_->presentLogWindow({}, {"a"});
  dialogs_.tellLogWindow(LogWindowEvent::openInCursor);
  EXPECT_TRUE(opened_.empty());
}

}  // namespace
}  // namespace zephyl
