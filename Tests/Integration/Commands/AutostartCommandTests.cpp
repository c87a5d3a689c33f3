#include "ZephylTray/Commands/Client/AutostartCommand.hpp"

#include <filesystem>

#include "StandardStreams.hpp"
#include "Support/LogCapture.hpp"
#include "Support/TemporaryDirectory.hpp"
#include "System/Files/Bundle.hpp"
#include "System/Files/Files.hpp"

namespace zephyl {
namespace {

/// A session with a `systemctl` that the test controls. Initially a display is set, and the unit is
/// not installed.
class AutostartCommandTest : public ::testing::Test {
 protected:
  AutostartCommandTest() {
    directory_.write("bin/systemctl",
                     "#!/bin/sh\ncd '" + directory_.path() +
                         "'\n"
                         "case \"$1 $2 $3\" in\n"
                         "'--user is-enabled zephyl-tray.service') cat unit 2>/dev/null ;;\n"
                         "'--user is-active graphical-session.target') cat session ;;\n"
                         "'--user enable zephyl-tray.service')\n"
                         "  test ! -e broken && echo enabled > unit ;;\n"
                         "'--user disable zephyl-tray.service')\n"
                         "  test ! -e broken && echo disabled > unit ;;\n"
                         "esac\n",
                     /*executable=*/true);
    setSession("inactive");
    Bundle::setMain(Bundle("/opt/zephyl/bin/zephyl-tray"));
  }
  ~AutostartCommandTest() override { Bundle::setMain(Bundle(std::nullopt)); }
  AutostartCommandTest(const AutostartCommandTest&) = delete;
  AutostartCommandTest& operator=(const AutostartCommandTest&) = delete;

  /// Sets the answer about the unit.
  void setUnit(const std::string& state) { directory_.write("unit", state + "\n"); }
  [[nodiscard]] std::string unit() const { return contentsOf(directory_ / "unit"); }
  void setSession(const std::string& state) { directory_.write("session", state + "\n"); }
  void breakSystemctl() { directory_.write("broken", ""); }

  [[nodiscard]] std::string entry() const {
    return directory_ / "config/autostart/com.zephyl.tray.desktop";
  }
  [[nodiscard]] bool hasEntry() const { return std::filesystem::exists(entry()); }
  void writeEntry(const std::string& text) {
    directory_.write("config/autostart/com.zephyl.tray.desktop", text);
  }

  /// Returns the text of a file, or empty if it cannot be read.
  static std::string contentsOf(const std::string& path) {
    const auto text = readFile(path);
    return text ? *text : "";
  }
  /// Runs an operation, which must return `status`. Returns its output.
  static std::string run(const std::string& operation, int status) {
    return test::outputOf([&] { EXPECT_EQ(runAutostart(operation), status) << operation; });
  }
  /// Returns the message of an operation that must fail.
  static std::string failureOf(const std::string& operation) {
    return test::logOf([&] { EXPECT_EQ(run(operation, 1), ""); });
  }

  test::TemporaryDirectory directory_;
  test::ScopedVariable path_{"PATH", directory_ / "bin" + ":/usr/bin:/bin"};
  test::ScopedVariable configuration_{"XDG_CONFIG_HOME", directory_ / "config"};
  test::ScopedVariable display_{"DISPLAY", ":7"};
  test::ScopedVariable wayland_{"WAYLAND_DISPLAY"};
};

TEST_F(AutostartCommandTest, UsesTheUnitIfSystemdRunsTheSession) {
  setUnit("disabled");
  setSession("active");
  writeEntry("[Desktop Entry]\nExec=zephyl-tray\n");
  EXPECT_EQ(run("on", 0),
            "Zephyl starts with your session, as the systemd unit zephyl-tray.service.\n");
  EXPECT_EQ(unit(), "enabled\n");
  EXPECT_FALSE(hasEntry()) << "only one tray must be started";
  EXPECT_EQ(run("status", 0), "on (systemd unit zephyl-tray.service)\n");
}

TEST_F(AutostartCommandTest, UsesTheUnitOfASessionWithoutADisplay) {
  const test::ScopedVariable display("DISPLAY");
  setUnit("disabled");
  run("on", 0);
  EXPECT_EQ(unit(), "enabled\n");
  EXPECT_FALSE(hasEntry());
}

TEST_F(AutostartCommandTest, UsesAnEntryWithoutAUnit) {
  setSession("active");
  EXPECT_EQ(run("on", 0), "Zephyl starts with your session, through " + entry() + ".\n");
  EXPECT_NE(contentsOf(entry()).find("Exec=\"/opt/zephyl/bin/zephyl-tray\""), std::string::npos);
  EXPECT_EQ(unit(), "");
  EXPECT_EQ(run("status", 0), "on (" + entry() + ")\n");
}

TEST_F(AutostartCommandTest, UsesAnEntryIfSystemdDoesNotRunTheSession) {
  const test::ScopedVariable display("DISPLAY");
  const test::ScopedVariable wayland("WAYLAND_DISPLAY", "wayland-7");
  for (const auto* before : {"enabled", "enabled-runtime", "linked", "disabled"}) {
    setUnit(before);
    run("on", 0);
    EXPECT_TRUE(hasEntry());
    EXPECT_EQ(unit(), "disabled\n") << "only one tray must be started";
  }
}

TEST_F(AutostartCommandTest, TurnsBothOff) {
  setUnit("enabled");
  writeEntry("[Desktop Entry]\nExec=zephyl-tray\n");
  EXPECT_EQ(run("off", 0), "Zephyl does not start with your session.\n");
  EXPECT_EQ(unit(), "disabled\n");
  EXPECT_FALSE(hasEntry());
  EXPECT_EQ(run("status", 1), "off\n");
  EXPECT_EQ(run("off", 0), "Zephyl does not start with your session.\n");
}

TEST_F(AutostartCommandTest, AHiddenEntryIsOff) {
  writeEntry("[Desktop Entry]\nExec=zephyl-tray\nHidden=true\n");
  EXPECT_EQ(run("status", 1), "off\n");
}

TEST_F(AutostartCommandTest, NamesTheCommandThatFailed) {
  breakSystemctl();
  setUnit("disabled");
  setSession("active");
  EXPECT_NE(failureOf("on").find("`systemctl --user enable zephyl-tray.service` failed"),
            std::string::npos);
  setUnit("enabled");
  const std::string disable = "`systemctl --user disable zephyl-tray.service` failed";
  EXPECT_NE(failureOf("off").find(disable), std::string::npos);
  setSession("inactive");
  EXPECT_NE(failureOf("on").find(disable), std::string::npos);
  EXPECT_FALSE(hasEntry());
}

TEST_F(AutostartCommandTest, ReportsAnEntryThatCannotBeWritten) {
  directory_.write("config", "not a directory");
  EXPECT_NE(failureOf("on"), "");
}

}  // namespace
}  // namespace zephyl
