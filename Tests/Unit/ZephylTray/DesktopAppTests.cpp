#include "ZephylTray/Actions/DesktopApp.hpp"

#include <filesystem>
#include <sstream>

#include <gtest/gtest.h>

#include "Support/FakeDesktop.hpp"
#include "Support/LogCapture.hpp"
#include "Support/Processes.hpp"
#include "Support/TestRuntime.hpp"
#include "Support/TrayWorld.hpp"
#include "System/Files/Bundle.hpp"
#include "System/Files/Files.hpp"
#include "System/Files/Shell.hpp"
#include "System/Processes/Guardian.hpp"
#include "System/Processes/SystemProcessLauncher.hpp"

namespace zephyl {
namespace {

using namespace std::chrono_literals;

constexpr auto identifier = "com.zephyl.desktop";
constexpr auto packagedApp = "prefix/share/zephyl-tray/Zephyl Window.app";

/// A launch without onboarding and server, with only token and port.
DesktopLaunch plainLaunch() {
  return {.control = ControlAccess{.token = "t0ken", .port = 8801}};
}

/// The tray runs from an installation that may contain a packaged app, beside a source tree that
/// may contain a developer's build.
class DesktopAppTest : public ::testing::Test {
 protected:
  DesktopAppTest() {
    std::filesystem::create_directories(world_.directory() / "prefix/share/zephyl-tray");
    Bundle::setMain(Bundle(world_.directory().write("prefix/bin/zephyl-tray", "", true)));
  }
  ~DesktopAppTest() override { Bundle::setMain(Bundle(std::nullopt)); }
  DesktopAppTest(const DesktopAppTest&) = delete;
  DesktopAppTest& operator=(const DesktopAppTest&) = delete;

  std::string addPackagedApp(const std::string& script = "") {
    return world_.directory().write(packagedApp, script, true);
  }
  std::string addPackagedDirectory(const std::string& script = "") {
    return world_.directory().write(packagedApp + std::string("/AppRun"), script, true);
  }
  std::string addDeveloperBuild() {
    return world_.addProgram("packages/desktop/src-tauri/target/debug/zephyl-desktop");
  }

  test::FakeChild& child() { return *runtime_.launcher.newest(); }
  const ProcessOptions& options() { return child().options(); }
  std::size_t launches() { return runtime_.launcher.children().size(); }
  RunningApplication own() { return {identifier, child().pid()}; }

  test::TrayWorld world_;
  test::ScopedVariable command_{"ZEPHYL_DESKTOP_LAUNCH_CMD"};
  test::TestRuntime runtime_;
  test::FakeDesktop desktop_;
  std::shared_ptr<DesktopApp> app_ = std::make_shared<DesktopApp>(runtime_.runtime(), desktop_);
};

// The environment

TEST(DesktopLaunch, ContainsOnlyTokenAndPortWithoutAServerAndOnboarding) {
  EXPECT_EQ(plainLaunch().environment(),
            (Environment{{"ZEPHYL_ONBOARD_TOKEN", "t0ken"}, {"ZEPHYL_ONBOARD_PORT", "8801"}}));
}

TEST(DesktopLaunch, ContainsServerAndOnboardingIfThereAre) {
  auto launch = plainLaunch();
  launch.serverURL = "http://100.64.0.7:80";
  EXPECT_EQ(launch.environment(), (Environment{{"ZEPHYL_ONBOARD_TOKEN", "t0ken"},
                                               {"ZEPHYL_ONBOARD_PORT", "8801"},
                                               {"ZEPHYL_URL", "http://100.64.0.7:80"}}));
  launch.needsOnboarding = true;
  launch.serverURL.reset();
  EXPECT_EQ(launch.environment(), (Environment{{"ZEPHYL_ONBOARD_TOKEN", "t0ken"},
                                               {"ZEPHYL_ONBOARD_PORT", "8801"},
                                               {"ZEPHYL_ONBOARD", "1"}}));
}

TEST(DesktopLaunch, OmitsAControlServerThatDoesNotListen) {
  const Environment inherited = {{"ZEPHYL_ONBOARD_TOKEN", "of another tray"},
                                 {"ZEPHYL_ONBOARD_PORT", "8801"},
                                 {"ZEPHYL_URL", "http://old"},
                                 {"SOMETHING_ELSE", "kept"}};
  EXPECT_EQ(
      (DesktopLaunch{.needsOnboarding = true}.environment(inherited)),
      (Environment{
          {"ZEPHYL_ONBOARD", "1"}, {"ZEPHYL_URL", "http://old"}, {"SOMETHING_ELSE", "kept"}}));
}

TEST_F(DesktopAppTest, StartsWithoutTheControlServerAfterOneLogLine) {
  addPackagedApp();
  const test::ScopedVariable port("ZEPHYL_ONBOARD_PORT", "8801");
  EXPECT_EQ(test::logOf([&] { app_->launch({}); }),
            "[tray] starting the desktop app without the control API, which is not available\n");
  EXPECT_FALSE(options().environment.contains("ZEPHYL_ONBOARD_TOKEN"));
  EXPECT_FALSE(options().environment.contains("ZEPHYL_ONBOARD_PORT"));
}

TEST_F(DesktopAppTest, AddsTheLaunchToTheTraysOwnEnvironment) {
  addPackagedApp();
  const test::ScopedVariable port("ZEPHYL_ONBOARD_PORT", "9999"), url("ZEPHYL_URL", "http://old"),
      other("SOMETHING_ELSE", "kept");
  auto expected = currentEnvironment();
  expected["ZEPHYL_ONBOARD_TOKEN"] = "t0ken";
  expected["ZEPHYL_ONBOARD_PORT"] = "8802";
  expected["ZEPHYL_URL"] = "http://100.64.0.7:8080";
  expected["ZEPHYL_ONBOARD"] = "1";
  app_->launch({"http://100.64.0.7:8080", true, ControlAccess{"t0ken", 8802}});
  EXPECT_EQ(options().environment, expected);
}

TEST_F(DesktopAppTest, GivesEveryKindOfChildTheSameEnvironment) {
  auto expected = currentEnvironment();
  expected["ZEPHYL_ONBOARD_TOKEN"] = "t0ken";
  expected["ZEPHYL_ONBOARD_PORT"] = "8801";
  app_->launch(plainLaunch());
  EXPECT_EQ(options().environment, expected);
  child().exit({});
  addDeveloperBuild();
  app_->launch(plainLaunch());
  EXPECT_EQ(options().environment, expected);
}

TEST_F(DesktopAppTest, GivesTheChildTheTokenOfTheActionThatStartsIt) {
  addPackagedApp();
  desktop_.activationToken = "token-1";
  app_->launch(plainLaunch());
  EXPECT_EQ(options().environment.at("XDG_ACTIVATION_TOKEN"), "token-1");
  EXPECT_EQ(options().environment.at("DESKTOP_STARTUP_ID"), "token-1");
  child().exit({});
  app_->launch(plainLaunch());
  EXPECT_FALSE(options().environment.contains("XDG_ACTIVATION_TOKEN"));
}

// The launched program

TEST_F(DesktopAppTest, RunsAPackagedFile) {
  const auto app = addPackagedApp();
  app_->launch(plainLaunch());
  EXPECT_EQ(options().executable, app);
  EXPECT_TRUE(options().arguments.empty());
  EXPECT_EQ(options().workingDirectory, "");
  EXPECT_EQ(options().lifetime, ProcessOptions::Lifetime::tied);
  EXPECT_EQ(options().onOutput, nullptr) << "it inherits the tray's output";
}

TEST_F(DesktopAppTest, RunsTheProgramInAPackagedDirectory) {
  const auto program = addPackagedDirectory();
  app_->launch(plainLaunch());
  EXPECT_EQ(options().executable, program);
  EXPECT_TRUE(options().arguments.empty());
}

TEST_F(DesktopAppTest, PrefersThePackagedAppThenADevelopersBuildThenTheCommand) {
  app_->launch(plainLaunch());
  EXPECT_EQ(options().executable, loginShell());
  child().exit({});
  const auto build = addDeveloperBuild();
  app_->launch(plainLaunch());
  EXPECT_EQ(options().executable, build);
  EXPECT_TRUE(options().arguments.empty());
  child().exit({});
  const auto app = addPackagedApp();
  app_->launch(plainLaunch());
  EXPECT_EQ(options().executable, app);
  EXPECT_EQ(launches(), 3U);
}

TEST_F(DesktopAppTest, RunsTheCommandInALoginShellInTheSourceTree) {
  app_->launch(plainLaunch());
  EXPECT_TRUE(options().executable == "/bin/zsh" || options().executable == "/bin/sh");
  EXPECT_EQ(options().arguments,
            (std::vector<std::string>{
                "-lc", "cd '" + world_.source() + "' && pnpm --filter @zephyl/desktop dev"}));
  child().exit({});
  const test::ScopedVariable command("ZEPHYL_DESKTOP_LAUNCH_CMD", "make window; echo 'done'");
  app_->launch(plainLaunch());
  EXPECT_EQ(options().arguments,
            (std::vector<std::string>{"-lc",
                                      "cd '" + world_.source() + "' && make window; echo 'done'"}));
}

TEST_F(DesktopAppTest, QuotesASingleQuoteForTheShell) {
  const test::ScopedVariable root("ZEPHYL_REPO_ROOT", "/tmp/it's");
  app_->launch(plainLaunch());
  EXPECT_EQ(options().arguments,
            (std::vector<std::string>{
                "-lc", R"(cd '/tmp/it'\''s' && pnpm --filter @zephyl/desktop dev)"}));
}

// A running copy

TEST_F(DesktopAppTest, ActivatesTheFirstCopyThatRunsAndStartsNone) {
  addPackagedApp();
  desktop_.applications = {
      {"org.example.editor", 70}, {identifier, 71}, {identifier, 72}, {"org.example.other", 73}};
  app_->launch(plainLaunch());
  EXPECT_EQ(desktop_.activated, (std::vector<RunningApplication>{{identifier, 71}}));
  EXPECT_EQ(launches(), 0U);
}

TEST_F(DesktopAppTest, ActivatesItsOwnChildInsteadOfStartingASecondOne) {
  const auto secondLaunchActivates = [&] {
    app_->launch(plainLaunch());
    const auto before = launches();
    app_->launch(plainLaunch());
    EXPECT_EQ(launches(), before);
    EXPECT_EQ(desktop_.activated, std::vector<RunningApplication>{own()});
    desktop_.activated.clear();
    child().exit({});
  };
  secondLaunchActivates();  // the command
  addDeveloperBuild();
  secondLaunchActivates();
  addPackagedApp();
  secondLaunchActivates();
  EXPECT_EQ(launches(), 3U);
}

TEST_F(DesktopAppTest, StartsAgainOnceItsChildHasExited) {
  app_->launch(plainLaunch());
  child().exit({ExitStatus::Reason::exited, 1});
  runtime_.settle();
  app_->launch(plainLaunch());
  EXPECT_EQ(launches(), 2U);
  EXPECT_TRUE(desktop_.activated.empty());
}

TEST_F(DesktopAppTest, AnExitThatArrivesLateDoesNotForgetTheNextChild) {
  app_->launch(plainLaunch());
  child().exit({});
  app_->launch(plainLaunch());
  ASSERT_EQ(launches(), 2U);
  runtime_.settle();  // only now the main thread handles the first exit
  app_->launch(plainLaunch());
  EXPECT_EQ(launches(), 2U);
  EXPECT_EQ(desktop_.activated, std::vector<RunningApplication>{own()});
}

TEST_F(DesktopAppTest, AnExitAfterItsDestructionIsIgnored) {
  app_->launch(plainLaunch());
  app_.reset();
  child().exit({});
  runtime_.settle();
  EXPECT_EQ(launches(), 1U);
}

// Failures

TEST_F(DesktopAppTest, ReportsWhyThePackagedAppCouldNotBeLaunchedAndTriesNothingElse) {
  addPackagedApp();
  addDeveloperBuild();
  runtime_.launcher.failWith("AppRun: Permission denied");
  EXPECT_EQ(test::logOf([&] { app_->launch(plainLaunch()); }),
            "[tray] failed to launch Zephyl Window.app: AppRun: Permission denied\n");
  runtime_.launcher.failWith(std::nullopt);
  EXPECT_EQ(launches(), 0U);
  app_->launch(plainLaunch());
  EXPECT_EQ(launches(), 1U) << "the next launch is a new attempt";
}

TEST_F(DesktopAppTest, ReportsWhyADevelopersLaunchFailed) {
  runtime_.launcher.failWith("/bin/zsh: No such file or directory");
  const auto line = "[tray] failed to launch desktop app: /bin/zsh: No such file or directory\n";
  EXPECT_EQ(test::logOf([&] { app_->launch(plainLaunch()); }), line);
  addDeveloperBuild();
  EXPECT_EQ(test::logOf([&] { app_->launch(plainLaunch()); }), line);
}

TEST_F(DesktopAppTest, LogsNothingWhenALaunchSucceeds) {
  EXPECT_EQ(test::logOf([&] {
              app_->launch(plainLaunch());
              app_->launch(plainLaunch());
              child().exit({});
              runtime_.settle();
            }),
            "");
}

// Quitting

TEST_F(DesktopAppTest, EndsEveryCopyAndItsOwnChild) {
  app_->launch(plainLaunch());
  desktop_.applications = {{identifier, 71}, {"org.example.editor", 70}, {identifier, 72}};
  app_->quit();
  EXPECT_EQ(desktop_.terminated,
            (std::vector<RunningApplication>{{identifier, 71}, {identifier, 72}}));
  EXPECT_EQ(child().terminateRequests(), 1);
}

TEST_F(DesktopAppTest, AsksItsOwnChildOnceAlsoWhenTheDesktopKnowsIt) {
  app_->launch(plainLaunch());
  desktop_.applications = {own(), {identifier, 71}};
  app_->quit();
  EXPECT_EQ(desktop_.terminated, (std::vector<RunningApplication>{{identifier, 71}}));
  EXPECT_EQ(child().terminateRequests(), 1);
}

TEST_F(DesktopAppTest, EndsWithNothingRunning) {
  app_->quit();
  app_->awaitExit(runtime_.clock.now() + 3s);
  EXPECT_TRUE(desktop_.terminated.empty());
}

TEST_F(DesktopAppTest, StartsANewCopyAfterQuitting) {
  app_->launch(plainLaunch());
  child().ignoreTermination();
  app_->quit();
  app_->launch(plainLaunch());
  ASSERT_EQ(launches(), 2U);
  runtime_.launcher.children().front()->exit({});
  runtime_.settle();
  app_->launch(plainLaunch());
  EXPECT_EQ(launches(), 2U) << "the exit was of the old copy";
}

TEST_F(DesktopAppTest, KillsAChildThatDoesNotEndInTime) {
  app_->launch(plainLaunch());
  child().ignoreTermination();
  app_->quit();
  ASSERT_TRUE(child().isRunning());
  EXPECT_EQ(test::logOf([&] { app_->awaitExit(runtime_.clock.now() + 3s); }),
            "[tray] " + std::to_string(child().pid()) + " ignored SIGTERM; killing it\n");
  EXPECT_FALSE(child().isRunning());
}

TEST_F(DesktopAppTest, WaitsOnlyForAChildThatWasAskedToEnd) {
  app_->launch(plainLaunch());
  app_->awaitExit(runtime_.clock.now());
  EXPECT_TRUE(child().isRunning());
  app_->quit();
  EXPECT_EQ(test::logOf([&] { app_->awaitExit(runtime_.clock.now()); }), "");
}

// Whether an app is installed

TEST_F(DesktopAppTest, IsInstalledAsAPackageABuildOrASourceTree) {
  EXPECT_TRUE(DesktopApp::isInstalled()) << "the source tree";
  const test::ScopedVariable root("ZEPHYL_REPO_ROOT", world_.directory() / "nowhere");
  EXPECT_FALSE(DesktopApp::isInstalled());
  world_.directory().write("nowhere", "");
  EXPECT_FALSE(DesktopApp::isInstalled()) << "a file is no source tree";
  addPackagedApp();
  EXPECT_TRUE(DesktopApp::isInstalled());
}

TEST_F(DesktopAppTest, WithoutASourceTreeItIsNotInstalledAndNoCommandRuns) {
  const auto before = std::filesystem::current_path();
  std::filesystem::current_path(world_.directory().path());
  const test::ScopedVariable root("ZEPHYL_REPO_ROOT", "");
  EXPECT_FALSE(DesktopApp::isInstalled());
  EXPECT_EQ(test::logOf([&] { app_->launch(plainLaunch()); }),
            "[tray] the desktop app is not installed; install it, or use the tray's menu and a "
            "browser\n");
  std::filesystem::current_path(before);
  EXPECT_EQ(launches(), 0U);
}

// Real children

/// A separate base, because a guardian must start before any thread and end after them.
struct WithGuardian {
  Result<Guardian> guardian = Guardian::start();
};

class RealDesktopAppTest : public WithGuardian, public DesktopAppTest {
 protected:
  Reactor reactor_;
  SystemProcessLauncher launcher_{reactor_, guardian.value()};
  std::shared_ptr<DesktopApp> realApp_ = std::make_shared<DesktopApp>(
      Runtime{runtime_.mainLoop, reactor_, runtime_.pool, runtime_.clock, launcher_}, desktop_);
};

TEST_F(RealDesktopAppTest, EndsTheAppWithItsWholeGroup) {
  addPackagedDirectory(
      "#!/bin/sh\n"
      "trap '' TERM\n"  // inherited, so only a kill ends the two
      "sleep 1000 &\n"
      "echo \"$$ $! $ZEPHYL_ONBOARD_TOKEN $ZEPHYL_ONBOARD_PORT\" > \"$HOME.tmp\"\n"
      "mv \"$HOME.tmp\" \"$HOME\"\n"
      "wait\n");
  realApp_->launch(plainLaunch());
  const std::string report = world_.directory() / "home";
  ASSERT_TRUE(test::eventually([&] { return fileExists(report); }));
  std::istringstream words(*readFile(report));
  pid_t shell = 0, sleeper = 0;
  std::string token, port;
  words >> shell >> sleeper >> token >> port;
  EXPECT_EQ(token, "t0ken");
  EXPECT_EQ(port, "8801");

  realApp_->launch(plainLaunch());
  EXPECT_EQ(desktop_.activated, (std::vector<RunningApplication>{{identifier, shell}}));
  realApp_->quit();
  EXPECT_FALSE(test::hasEnded(shell));
  realApp_->awaitExit(runtime_.clock.now() + 50ms);
  EXPECT_TRUE(test::eventually([&] { return test::hasEnded(shell) && test::hasEnded(sleeper); }));
}

TEST_F(RealDesktopAppTest, ReportsWhyTheSystemCannotRunThePackagedApp) {
  const auto launchLog = [&] { return test::logOf([&] { realApp_->launch(plainLaunch()); }); };
  const auto app = world_.directory().write(packagedApp, "not executable");
  EXPECT_EQ(launchLog(),
            "[tray] failed to launch Zephyl Window.app: " + app + ": Permission denied\n");
  std::filesystem::remove(app);
  std::filesystem::create_directory(app);
  EXPECT_EQ(launchLog(), "[tray] failed to launch Zephyl Window.app: " + app +
                             "/AppRun: No such file or directory\n");
}

}  // namespace
}  // namespace zephyl
