#include "Desktop/Terminal/TerminalDesktop.hpp"

#include <array>
#include <cstdio>
#include <filesystem>
#include <map>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include "Support/Eventually.hpp"
#include "Support/TemporaryDirectory.hpp"
#include "System/Concurrency/SystemClock.hpp"
#include "System/Files/Files.hpp"
#include "System/Processes/CoreDumps.hpp"

namespace zephyl {
namespace {

using namespace std::chrono_literals;

constexpr auto enterScreen = "\x1b[?1049h";
constexpr auto leaveScreen = "\x1b[?1049l";

using Environment = std::map<std::string, std::string>;

/// Uses the desktop for the row that was chosen.
void use(TerminalDesktop& desktop, const std::string& row) {
  if (row == "print") {
    std::printf("printed to stdout\n");
    std::fflush(stdout);
    std::fprintf(stderr, "printed to stderr\n");
  } else if (row == "notify") {
    desktop.postNotification({"first", "A title", "A body.", "Show"});
  } else if (row == "address") {
    desktop.openURL("https://server.test/");
  } else if (row == "file") {
    desktop.openFile("/tmp/agent.log", Editor::textEdit);
  }
}

/// Returns a row that is chosen with Control and the first letter of its key.
MenuEntry row(const std::string& key) {
  return {.key = key,
          .title = "Row " + key,
          .dot = DotColor::red,
          .shortcut = key.substr(0, 1),
          .action = MenuAction(key)};
}

/// Shows a desktop until the row "quit" is chosen. Returns the exit status.
int showDesktop() {
  MainLoop mainLoop;
  Reactor reactor;
  SystemClock clock(reactor);
  auto opened = TerminalDesktop::open({mainLoop, clock, reactor});
  if (!opened) {
    std::fprintf(stderr, "%s\n", opened.error().message.c_str());
    return 3;
  }
  auto& desktop = **opened;
  auto& item = desktop.statusItem();
  desktop.setEvents({.reopened = {}, .notificationActivated = [&](const std::string& identifier) {
                       item.setDescription("activated " + identifier);
                     }});
  item.setMenuEvents({.chosen = [&](const MenuAction& action) {
    const auto& chosen = *action.as<std::string>();
    chosen == "quit" ? mainLoop.quit() : use(desktop, chosen);
  }});
  item.setDescription("reachable");
  item.setMenu({row("print"), row("notify"), row("address"), row("file"), row("quit")});
  mainLoop.run();
  return 0;
}

/// A terminal in which a child process shows a desktop. The test types and reads.
class TerminalSession {
 public:
  explicit TerminalSession(const Environment& environment = {}) {
    const winsize size{.ws_row = 24, .ws_col = 80, .ws_xpixel = 0, .ws_ypixel = 0};
    int user = -1;
    std::fflush(nullptr);  // the child must not print what the test's streams hold
    process_ = ::forkpty(&user, nullptr, nullptr, &size);
    if (process_ == 0) {
      ::prctl(PR_SET_PDEATHSIG, SIGKILL);
      coreDumps::disable();
      for (const auto* name : {"LC_ALL", "LC_CTYPE", "NO_COLOR"}) ::unsetenv(name);
      ::setenv("LANG", "C.UTF-8", 1);
      ::setenv("TERM", "xterm-256color", 1);
      for (const auto& [name, value] : environment) ::setenv(name.c_str(), value.c_str(), 1);
      ::_exit(showDesktop());
    }
    user_.reset(user);
    ::fcntl(user, F_SETFL, O_NONBLOCK);
  }
  ~TerminalSession() {
    if (status_) return;
    ::kill(process_, SIGKILL);
    ::waitpid(process_, nullptr, 0);
  }
  TerminalSession(const TerminalSession&) = delete;
  TerminalSession& operator=(const TerminalSession&) = delete;

  void press(std::string_view keys) const {
    EXPECT_EQ(::write(user_.get(), keys.data(), keys.size()), std::ssize(keys));
  }
  void signal(int number) const { ::kill(process_, number); }
  void resize(unsigned short rows, unsigned short columns) const {
    const winsize size{.ws_row = rows, .ws_col = columns, .ws_xpixel = 0, .ws_ypixel = 0};
    ::ioctl(user_.get(), TIOCSWINSZ, &size);
  }

  /// Returns the output since the start or the last `forget`.
  const std::string& output() {
    std::array<char, 4096> piece{};
    for (;;) {
      const auto count = ::read(user_.get(), piece.data(), piece.size());
      if (count <= 0) return output_;
      output_.append(piece.data(), static_cast<std::size_t>(count));
    }
  }
  void forget() {
    output();
    output_.clear();
  }
  /// Waits until the output contains the text.
  bool shows(std::string_view text) {
    return test::eventually([&] { return output().find(text) != std::string::npos; });
  }
  /// Redraws the screen, whose changes are written in parts, until it shows the text.
  bool showsOnceRedrawn(std::string_view text) {
    return test::eventually([&] {
      press("\x0c");
      return test::eventually([&] { return output().find(text) != std::string::npos; }, 100ms);
    });
  }
  /// Waits for the end of the child and returns its status as `waitpid` does, or -1.
  int waitForEnd() {
    int status = -1;
    test::eventually([&] {
      output();
      if (::waitpid(process_, &status, WNOHANG) == process_) status_ = status;
      return status_.has_value();
    });
    output();
    return status_.value_or(-1);
  }

 private:
  pid_t process_ = -1;
  FileDescriptor user_;
  std::string output_;
  std::optional<int> status_;
};

/// Returns the output after the last switch to the normal screen.
std::string afterScreen(const std::string& output) {
  const auto end = output.rfind(leaveScreen);
  return end == std::string::npos ? "" : output.substr(end);
}

constexpr auto control(char letter) {
  return std::array<char, 2>{static_cast<char>(letter - 'a' + 1), '\0'};
}

TEST(TerminalDesktop, ShowsTheMenuUntilTheEnd) {
  TerminalSession terminal;
  EXPECT_TRUE(terminal.shows("Row quit"));
  EXPECT_TRUE(terminal.shows("reachable"));
  EXPECT_TRUE(terminal.output().starts_with(enterScreen));
  terminal.press(control('q').data());
  EXPECT_EQ(terminal.waitForEnd(), 0);
  EXPECT_EQ(afterScreen(terminal.output()).find("Row"), std::string::npos);
  EXPECT_NE(afterScreen(terminal.output()), "");
}

TEST(TerminalDesktop, PrintsTheUnseenOutputAfterTheScreen) {
  TerminalSession terminal;
  ASSERT_TRUE(terminal.shows("Row quit"));
  terminal.press(control('p').data());
  EXPECT_TRUE(terminal.showsOnceRedrawn("(2 new)"));
  EXPECT_EQ(terminal.output().find("printed to"), std::string::npos)
      << "it would damage the screen";
  terminal.press(control('q').data());
  EXPECT_EQ(terminal.waitForEnd(), 0);
  EXPECT_NE(afterScreen(terminal.output()).find("printed to stdout\r\n"), std::string::npos);
  EXPECT_NE(afterScreen(terminal.output()).find("printed to stderr\r\n"), std::string::npos);
}

TEST(TerminalDesktop, ShowsAndWritesTheLog) {
  const test::TemporaryDirectory directory;
  TerminalSession terminal(Environment{{"TMPDIR", directory.path()}});
  ASSERT_TRUE(terminal.shows("Row quit"));
  terminal.press(control('p').data());
  ASSERT_TRUE(terminal.showsOnceRedrawn("(2 new)"));
  terminal.press("l");
  EXPECT_TRUE(terminal.shows("printed to stdout"));
  terminal.press("w");
  EXPECT_TRUE(terminal.shows("Written to " + directory.path()));
  terminal.press("q");
  terminal.press(control('q').data());
  EXPECT_EQ(terminal.waitForEnd(), 0);
  EXPECT_EQ(afterScreen(terminal.output()).find("printed"), std::string::npos) << "it was seen";
  const std::filesystem::directory_iterator files(directory.path());
  ASSERT_NE(files, std::filesystem::directory_iterator());
  EXPECT_NE(readFile(files->path())->find("printed to stdout\n"), std::string::npos);
}

TEST(TerminalDesktop, ReportsAnActivatedNotification) {
  TerminalSession terminal;
  ASSERT_TRUE(terminal.shows("Row quit"));
  terminal.press(control('n').data());
  EXPECT_TRUE(terminal.shows("A title"));
  terminal.press("n");
  EXPECT_TRUE(terminal.shows("activated first"));
}

TEST(TerminalDesktop, ShowsAnAddressAndCopiesIt) {
  TerminalSession terminal;
  ASSERT_TRUE(terminal.shows("Row quit"));
  terminal.press(control('a').data());
  EXPECT_TRUE(terminal.shows("https://server.test/"));
  ASSERT_TRUE(terminal.shows("[›Close")) << "the box accepts keys";
  terminal.press("\t\r");
  EXPECT_TRUE(terminal.shows("\x1b]52;c;aHR0cHM6Ly9zZXJ2ZXIudGVzdC8=\a"));
}

TEST(TerminalDesktop, NamesAFileThatItCannotOpen) {
  TerminalSession terminal;
  ASSERT_TRUE(terminal.shows("Row quit"));
  terminal.press(control('f').data());
  EXPECT_TRUE(terminal.shows("Written to /tmp/agent.log"));
}

TEST(TerminalDesktop, UsesColorsUnlessTheUserForbidsThem) {
  constexpr auto red = "\x1b[31m";
  TerminalSession colored(Environment{{"NO_COLOR", ""}});
  ASSERT_TRUE(colored.shows("Row quit"));
  EXPECT_TRUE(colored.shows(red));
  TerminalSession plain(Environment{{"NO_COLOR", "1"}});
  ASSERT_TRUE(plain.shows("Row quit"));
  EXPECT_TRUE(plain.shows("Ctrl-C quit"));
  EXPECT_EQ(plain.output().find(red), std::string::npos);
}

TEST(TerminalDesktop, UsesUnicodeIfTheFirstLocaleHasIt) {
  const Environment unicode[] = {{{"LC_ALL", "C.UTF-8"}, {"LANG", "C"}},
                                 {{"LC_ALL", ""}, {"LC_CTYPE", "en_US.utf8"}, {"LANG", "C"}}};
  for (const auto& environment : unicode) {
    TerminalSession terminal(environment);
    EXPECT_TRUE(terminal.shows("↑↓ move"));
  }
  for (const auto& environment : {Environment{{"LC_ALL", "C"}}, Environment{{"LANG", ""}}}) {
    TerminalSession terminal(environment);
    EXPECT_TRUE(terminal.shows("Ctrl-C quit"));
    EXPECT_EQ(terminal.output().find("↑"), std::string::npos);
  }
}

TEST(TerminalDesktop, RefusesATerminalThatCannotShowAMenu) {
  TerminalSession terminal(Environment{{"TERM", "dumb"}});
  const int status = terminal.waitForEnd();
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 3);
  EXPECT_NE(terminal.output().find("cannot show a menu"), std::string::npos);
}

TEST(TerminalDesktop, RedrawsForAnotherSizeAndAfterAnotherProgram) {
  TerminalSession terminal;
  ASSERT_TRUE(terminal.shows("Row quit"));
  terminal.forget();
  terminal.resize(30, 100);
  EXPECT_TRUE(terminal.shows("Row quit"));
  terminal.forget();
  terminal.signal(SIGCONT);
  EXPECT_TRUE(terminal.shows(enterScreen));
  EXPECT_TRUE(terminal.shows("Row quit"));
}

TEST(TerminalDesktop, ContinuesHeadlessAfterAHangUp) {
  TerminalSession terminal;
  ASSERT_TRUE(terminal.shows("Row quit"));
  terminal.signal(SIGHUP);
  EXPECT_TRUE(terminal.shows(leaveScreen));
  EXPECT_TRUE(terminal.shows("the terminal was closed: running without a screen"));
  EXPECT_TRUE(terminal.shows("[tray] reachable"));
  terminal.signal(SIGTERM);
  EXPECT_TRUE(WIFSIGNALED(terminal.waitForEnd())) << "it was still running";
}

TEST(TerminalDesktop, RestoresTheTerminalBeforeACrash) {
  TerminalSession terminal;
  ASSERT_TRUE(terminal.shows("Row quit"));
  terminal.signal(SIGABRT);
  const int status = terminal.waitForEnd();
  EXPECT_TRUE(WIFSIGNALED(status));
  EXPECT_EQ(WTERMSIG(status), SIGABRT);
  EXPECT_NE(afterScreen(terminal.output()), "");
}

}  // namespace
}  // namespace zephyl
