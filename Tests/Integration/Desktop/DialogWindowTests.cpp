#include <QClipboard>
#include <QFileDialog>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QProgressBar>

#include "DialogWindowTest.hpp"
#include "Helpers/Dialogs/Program/AlertWindow.hpp"
#include "Helpers/Dialogs/Program/FolderWindow.hpp"
#include "Helpers/Dialogs/Program/LogViewer.hpp"
#include "Support/TemporaryDirectory.hpp"

namespace zephyl {
namespace {

/// Owns the application object of the toolkit, with a screen that is not shown.
class Toolkit final : public ::testing::Environment {
 public:
  void SetUp() override {
    application_ = std::make_unique<QApplication>(count_, arguments_);
    QApplication::setQuitOnLastWindowClosed(false);
  }
  void TearDown() override { application_.reset(); }

 private:
  const test::TemporaryDirectory home_;
  const test::ScopedVariable variables_[4] = {
      test::ScopedVariable("QT_QPA_PLATFORM", "offscreen"),
      test::ScopedVariable("HOME", home_.path()),
      test::ScopedVariable("XDG_RUNTIME_DIR", home_.path()),
      test::ScopedVariable("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/bus")};
  int count_ = 1;
  char name_[6] = "tests";
  char* arguments_[2] = {name_, nullptr};
  std::unique_ptr<QApplication> application_;
};
[[maybe_unused]] const auto* const toolkit =
    ::testing::AddGlobalTestEnvironment(std::make_unique<Toolkit>().release());

Alert request(const std::string& explanation) {
  return {.heading = "Allow access?",
          .explanation = explanation,
          .buttons = {"Deny", "Allow"},
          .permittingButtons = {1},
          .requestedByUser = true};
}

class AlertWindowTest : public test::DialogWindowTest {};

TEST_F(AlertWindowTest, ReportsThePressedButton) {
  present<AlertWindow>(request("Why."));
  ASSERT_TRUE(runUntil([this] { return button("Allow").isEnabled(); }));
  button("Allow").click();
  EXPECT_TRUE(reports(R"({"answer":{"button":1,"text":""}})")) << output_.text();
  EXPECT_TRUE(reports(R"({"hidden":true})")) << output_.text();
  EXPECT_FALSE(window_->isVisible());
}

TEST_F(AlertWindowTest, AcceptsNoInputBeforeItIsOnScreen) {
  window_ = std::make_unique<AlertWindow>(conversation_, request("Why."));
  EXPECT_FALSE(button("Deny").isEnabled());
  EXPECT_FALSE(button("Allow").isEnabled());
}

TEST_F(AlertWindowTest, PermitsNothingUntilTheEndOfTheTextWasOnScreen) {
  std::string text;
  for (int i = 0; i < 500; ++i) text += "line\n";
  present<AlertWindow>(request(text));
  ASSERT_TRUE(runUntil([this] { return button("Deny").isEnabled(); }));
  EXPECT_FALSE(button("Allow").isEnabled());
  EXPECT_EQ(button("Allow").accessibleDescription(),
            "Scroll to the end of the text before you allow this.");
  EXPECT_EQ(button("Deny").accessibleDescription(), "");
  press(button("Deny"), Qt::Key_Right);
  press(button("Deny"), Qt::Key_PageDown);
  QCoreApplication::processEvents();
  EXPECT_FALSE(button("Allow").isEnabled());
  press(button("Deny"), Qt::Key_End);
  EXPECT_TRUE(runUntil([this] { return button("Allow").isEnabled(); }));
  EXPECT_EQ(button("Allow").accessibleDescription(), "");
}

TEST_F(AlertWindowTest, EscapeIsTheSafeAnswer) {
  auto alert = request("Why.");
  alert.safeButton = 1;
  alert.permittingButtons = {};
  auto& window = present<AlertWindow>(alert);
  press(window, Qt::Key_Escape);
  EXPECT_TRUE(reports(R"({"answer":{"button":1,"text":""}})")) << output_.text();
}

TEST_F(AlertWindowTest, TheAnswerContainsTheTypedText) {
  present<AlertWindow>(Alert{.heading = "Join",
                             .buttons = {"Join", "Cancel"},
                             .safeButton = 1,
                             .textField = Alert::TextField{.placeholder = "inv_v2_…"},
                             .requestedByUser = true});
  auto& field = *window_->findChild<QLineEdit*>();
  EXPECT_EQ(field.placeholderText(), "inv_v2_…");
  field.insert(QString(5000, 'k'));
  EXPECT_EQ(field.text().size(), 4096);
  field.setText("key");
  button("Join").click();
  EXPECT_TRUE(reports(R"({"answer":{"button":0,"text":"key"}})")) << output_.text();
}

TEST_F(AlertWindowTest, ShowsProgress) {
  auto& window = present<AlertWindow>(Alert{.heading = "Downloading",
                                            .buttons = {"Cancel"},
                                            .progress = Progress{.fraction = 0.25, .text = "1 MB"},
                                            .requestedByUser = true});
  auto& bar = *window.findChild<QProgressBar*>();
  EXPECT_EQ(bar.value() * 4, bar.maximum());
  EXPECT_EQ(bar.accessibleDescription(), "1 MB");
  window.showProgress({.fraction = 7, .text = "4 MB"});
  EXPECT_EQ(bar.value(), bar.maximum());
  window.showProgress({.text = "Verifying"});
  EXPECT_EQ(bar.maximum(), 0) << "unmeasured";
  const auto labels = window.findChildren<QLabel*>();
  EXPECT_TRUE(
      std::ranges::any_of(labels, [](auto* label) { return label->text() == "Verifying"; }));
}

TEST_F(AlertWindowTest, AClosedWindowReportsNoAnswer) {
  present<AlertWindow>(request("Why."));
  window_->dismiss();
  EXPECT_TRUE(reports(R"({"hidden":true})"));
  EXPECT_EQ(output_.text().find("answer"), std::string::npos);
}

class LogViewerTest : public test::DialogWindowTest {
 protected:
  const LogWindow log_{.title = "Agent Log",
                       .message = "It ended.",
                       .shownText = "two",
                       .fullText = "one\ntwo\x1b",
                       .requestedByUser = true};
};

TEST_F(LogViewerTest, ShowsTheEndAndCopiesEverything) {
  present<LogViewer>(log_);
  EXPECT_EQ(window_->findChild<QPlainTextEdit*>()->toPlainText(), "two");
  ASSERT_TRUE(runUntil([this] { return button("Copy Full Log").isEnabled(); }));
  button("Copy Full Log").click();
  EXPECT_EQ(QGuiApplication::clipboard()->text(), "one\ntwo␛");
}

TEST_F(LogViewerTest, ReportsTheChosenEditorAndItsEnd) {
  present<LogViewer>(log_);
  const auto actions = button("Write to File && Open…").menu()->actions();
  ASSERT_EQ(actions.size(), 3);
  for (auto* const action : actions) action->trigger();
  EXPECT_TRUE(reports(R"({"logEvent":"openInCursor"})")) << output_.text();
  EXPECT_TRUE(reports(R"({"logEvent":"openInVSCode"})"));
  EXPECT_TRUE(reports(R"({"logEvent":"openInTextEdit"})"));
  button("Close").click();
  EXPECT_TRUE(reports(R"({"logEvent":"closed"})"));
}

class FolderWindowTest : public test::DialogWindowTest {};

TEST_F(FolderWindowTest, ReportsTheChosenFolder) {
  const test::TemporaryDirectory directory;
  present<FolderWindow>(FolderRequest{.prompt = "Share", .message = "Choose a folder."});
  auto& picker = *window_->findChild<QFileDialog*>();
  EXPECT_EQ(picker.fileMode(), QFileDialog::Directory);
  EXPECT_EQ(picker.labelText(QFileDialog::Accept), "Share");
  picker.setDirectory(QString::fromStdString(directory.path()));
  static_cast<QDialog&>(picker).done(QDialog::Accepted);
  EXPECT_TRUE(reports(R"({"folder":")" + directory.path() + R"("})")) << output_.text();
}

TEST_F(FolderWindowTest, ReportsNoFolderIfTheUserCancels) {
  present<FolderWindow>(FolderRequest{.prompt = "Share", .message = "Choose a folder."});
  static_cast<QDialog*>(window_->findChild<QFileDialog*>())->done(QDialog::Rejected);
  EXPECT_TRUE(reports(R"({"folder":""})")) << output_.text();
}

TEST(PlainText, MakesCharactersVisibleAndMarkupHarmless) {
  EXPECT_EQ(plainText("a\u202eb").indexOf(QChar(0x202e)), -1);
  EXPECT_EQ(plainText("<b>").toStdString(), "<b>");
  EXPECT_EQ(buttonText("Save & Quit").toStdString(), "Save && Quit");
}

class WrappedTextTest : public ::testing::Test {
 protected:
  static QString copied(WrappedText& text) {
    text.selectAll();
    text.copy();
    return QGuiApplication::clipboard()->text();
  }
};

TEST_F(WrappedTextTest, IsAsHighAsItsTextUpToALimit) {
  WrappedText one("one", QFont(), {300, 200});
  WrappedText two("one\ntwo", QFont(), {300, 200});
  EXPECT_FALSE(one.scrolls());
  EXPECT_FALSE(two.scrolls());
  EXPECT_GT(two.sizeHint().height(), one.sizeHint().height());
  EXPECT_LT(two.sizeHint().height(), 200);
  for (const auto& text : {QStringLiteral("line\n").repeated(200), QString(20'001, ' ')}) {
    WrappedText high(text, QFont(), {300, 200});
    EXPECT_TRUE(high.scrolls());
    EXPECT_EQ(high.sizeHint(), QSize(300, 200));
  }
}

TEST_F(WrappedTextTest, DividesLongWordsButCopiesThemWhole) {
  const QString word(513, 'w');
  WrappedText text(word + "\n" + QString(512, 'v'), QFont(), {300, 200});
  EXPECT_EQ(text.toPlainText(), QString(512, 'w') + QChar(0x200B) + "w\n" + QString(512, 'v'));
  EXPECT_EQ(copied(text), word + "\n" + QString(512, 'v'));
}

TEST_F(WrappedTextTest, CountsTheLengthOfAWordFromTheLastSpace) {
  const QString words = QString(400, 'w') + ' ' + QString(512, 'v');
  WrappedText text(words, QFont(), {300, 200});
  EXPECT_EQ(text.toPlainText(), words);
}

TEST_F(WrappedTextTest, EscapesMarksBeyondALimit) {
  const QString marks(16, QChar(0x0301));
  WrappedText text("e" + marks + QChar(0x0301), QFont(), {300, 200});
  EXPECT_EQ(text.toPlainText(), "e" + marks + "\\u0301");
}

TEST_F(WrappedTextTest, ScrollsByItsKeysAndReportsItsEnd) {
  WrappedText text(QStringLiteral("line\n").repeated(200), QFont(), {300, 200});
  int ends = 0;
  text.onEndShown = [&] { ++ends; };
  text.show();
  EXPECT_FALSE(text.scrollBy(Qt::Key_A));
  for (const int key : {Qt::Key_Down, Qt::Key_PageDown, Qt::Key_Up, Qt::Key_PageUp, Qt::Key_Home}) {
    EXPECT_TRUE(text.scrollBy(key));
    text.grab();
    QCoreApplication::processEvents();
  }
  EXPECT_FALSE(text.endWasShown());
  EXPECT_TRUE(text.scrollBy(Qt::Key_End));
  EXPECT_TRUE(test::eventually([&] {
    text.grab();
    QCoreApplication::processEvents();
    return ends > 0;
  }));
  EXPECT_TRUE(text.endWasShown());
  EXPECT_EQ(ends, 1);
}

}  // namespace
}  // namespace zephyl
