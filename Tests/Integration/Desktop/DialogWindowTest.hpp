#pragma once

#include <QApplication>
#include <QKeyEvent>
#include <QPushButton>
#include <algorithm>
#include <cstdio>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "Helpers/Dialogs/Program/Conversation.hpp"
#include "Helpers/Dialogs/Program/DialogWindow.hpp"
#include "Support/Eventually.hpp"
#include "System/Files/FileDescriptor.hpp"

namespace zephyl::test {

/// Records what is written to standard output. Prints it to standard error if the test fails,
/// because it contains the reason, too.
class RecordedOutput {
 public:
  RecordedOutput() : before_(::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3)) {
    std::fflush(stdout);
    ::dup2(file_.get(), STDOUT_FILENO);
  }
  ~RecordedOutput() {
    std::fflush(stdout);
    ::dup2(before_.get(), STDOUT_FILENO);
    if (::testing::Test::HasFailure()) std::fprintf(stderr, "%s\n", text().c_str());
  }
  RecordedOutput(const RecordedOutput&) = delete;
  RecordedOutput& operator=(const RecordedOutput&) = delete;

  [[nodiscard]] std::string text() const {
    std::string text(static_cast<std::size_t>(::lseek(file_.get(), 0, SEEK_END)), '\0');
    const auto count = ::pread(file_.get(), text.data(), text.size(), 0);
    text.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    return text;
  }

 private:
  const FileDescriptor file_{::memfd_create("output", MFD_CLOEXEC)};
  const FileDescriptor before_;
};

/// A window on an invisible screen. The test's thread is the main thread of the toolkit.
class DialogWindowTest : public ::testing::Test {
 protected:
  /// Runs the toolkit until `condition` holds.
  static bool runUntil(const std::function<bool()>& condition) {
    return eventually([&] {
      QCoreApplication::processEvents();
      return condition();
    });
  }
  bool reports(const std::string& line) {
    return runUntil([&] { return output_.text().find(line + "\n") != std::string::npos; });
  }
  /// Presents a window at the user's request and waits until it is on screen.
  template <typename Window, typename Request>
  Window& present(const Request& request) {
    auto window = std::make_unique<Window>(conversation_, request);
    auto& presented = *window;
    window_ = std::move(window);
    window_->present(/*requestedByUser=*/true);
    EXPECT_TRUE(reports(R"({"shown":true})")) << output_.text();
    return presented;
  }
  /// Returns the button with this title, which must exist.
  QPushButton& button(const QString& title) {
    const auto buttons = window_->findChildren<QPushButton*>();
    const auto found = std::ranges::find(buttons, title, &QPushButton::text);
    if (found == buttons.end()) throw std::out_of_range("no button " + title.toStdString());
    return **found;
  }
  static void press(QWidget& widget, int key) {
    QKeyEvent event(QEvent::KeyPress, key, Qt::NoModifier);
    QApplication::sendEvent(&widget, &event);
  }

  const RecordedOutput output_;
  Conversation conversation_;
  std::unique_ptr<DialogWindow> window_;
};

}  // namespace zephyl::test
