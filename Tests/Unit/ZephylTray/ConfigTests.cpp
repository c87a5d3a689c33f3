#include "ZephylTray/Config/Config.hpp"

#include <filesystem>
#include <thread>

#include <gtest/gtest.h>

#include "Support/HomelessUser.hpp"
#include "Support/LogCapture.hpp"
#include "Support/TemporaryDirectory.hpp"
#include "System/Files/Bundle.hpp"
#include "System/Files/UserDefaults.hpp"

namespace fs = std::filesystem;

namespace zephyl {
namespace {

using test::ScopedVariable;

/// A private home, working directory and installation without any settings.
class ConfigTest : public ::testing::Test {
 protected:
  ConfigTest() {
    for (const auto* name : {"work", "prefix/bin", "prefix/share/zephyl-tray"}) {
      fs::create_directories(directory_ / name);
    }
    fs::current_path(directory_ / "work");
    Bundle::setMain(Bundle(directory_ / "prefix/bin/zephyl-tray"));
  }
  ~ConfigTest() override {
    Bundle::setMain(Bundle(std::nullopt));
    fs::current_path(oldWorkingDirectory_);
  }
  ConfigTest(const ConfigTest&) = delete;
  ConfigTest& operator=(const ConfigTest&) = delete;

  void writeDefaults(const std::string& text) {
    directory_.write("home/.config/com.zephyl.tray/defaults.json", text);
  }
  std::string addProgram(const std::string& name) { return directory_.write(name, "", true); }
  std::string bundled(const std::string& name) {
    return directory_ / ("prefix/share/zephyl-tray/" + name);
  }

  test::TemporaryDirectory directory_;
  fs::path oldWorkingDirectory_ = fs::current_path();
  ScopedVariable home_{"HOME", directory_ / "home"};
  ScopedVariable data_{"XDG_DATA_HOME"};
  ScopedVariable configuration_{"XDG_CONFIG_HOME"};
  ScopedVariable trayPort_{"AGENT_TRAY_PORT"};
  ScopedVariable onboardingPort_{"ZEPHYL_ONBOARD_PORT"};
  ScopedVariable repoRoot_{"ZEPHYL_REPO_ROOT"};
  ScopedVariable launchCommand_{"ZEPHYL_DESKTOP_LAUNCH_CMD"};
};

// Ports

TEST_F(ConfigTest, HasBuiltInPorts) {
  EXPECT_EQ(Config::trayPort(), 8799);
  EXPECT_EQ(Config::onboardingPort(), 8801);
  EXPECT_EQ(Config::apiBaseURL(), "http://127.0.0.1:8799");
}

TEST_F(ConfigTest, ReadsAPortFromTheEnvironmentOnlyIfItIsAPositiveDecimal) {
  for (const auto* bad : {"0", "-5", "abc", "", "70000x", "+", "+-1", " 9000", "9000 ", "0x2328",
                          "9000.0", "9223372036854775808"}) {
    const ScopedVariable tray("AGENT_TRAY_PORT", bad), onboarding("ZEPHYL_ONBOARD_PORT", bad);
    EXPECT_EQ(Config::trayPort(), 8799) << bad;
    EXPECT_EQ(Config::onboardingPort(), 8801) << bad;
  }
  for (const auto* good : {"9000", "+9000", "09000"}) {
    const ScopedVariable tray("AGENT_TRAY_PORT", good), onboarding("ZEPHYL_ONBOARD_PORT", good);
    EXPECT_EQ(Config::trayPort(), 9000) << good;
    EXPECT_EQ(Config::onboardingPort(), 9000) << good;
  }
}

TEST_F(ConfigTest, AcceptsAPortThatIsTooLarge) {
  const ScopedVariable port("ZEPHYL_ONBOARD_PORT", "70000");
  EXPECT_EQ(Config::onboardingPort(), 70000);
}

TEST_F(ConfigTest, PrefersAStoredPortThatIsAPositiveInteger) {
  const ScopedVariable tray("AGENT_TRAY_PORT", "9000"), onboarding("ZEPHYL_ONBOARD_PORT", "9001");
  writeDefaults(R"({"trayPort": 9100, "onboardingPort": 9101})");
  EXPECT_EQ(Config::trayPort(), 9100);
  EXPECT_EQ(Config::onboardingPort(), 9101);
  EXPECT_EQ(Config::apiBaseURL(), "http://127.0.0.1:9100");
  for (const auto* bad : {"0", "-1", "\"9100\"", "9100.5", "true", "null", "[9100]", "1e30"}) {
    writeDefaults(R"({"trayPort": )" + std::string(bad) + "}");
    EXPECT_EQ(Config::trayPort(), 9000) << bad;
    EXPECT_EQ(Config::onboardingPort(), 9001) << bad;
  }
}

TEST_F(ConfigTest, SeesAChangedSettingAtTheNextRead) {
  writeDefaults(R"({"trayPort": 9100})");
  EXPECT_EQ(Config::trayPort(), 9100);
  writeDefaults("broken");
  EXPECT_EQ(Config::trayPort(), 8799);
  const ScopedVariable port("AGENT_TRAY_PORT", "9000");
  EXPECT_EQ(Config::trayPort(), 9000);
}

// Texts and paths

TEST_F(ConfigTest, ReadsTheLaunchCommandFromTheDefaultsThenFromTheEnvironment) {
  EXPECT_EQ(Config::desktopLaunchCommand(), "pnpm --filter @zephyl/desktop dev");
  const ScopedVariable empty("ZEPHYL_DESKTOP_LAUNCH_CMD", "");
  EXPECT_EQ(Config::desktopLaunchCommand(), "pnpm --filter @zephyl/desktop dev");
  const ScopedVariable spaces("ZEPHYL_DESKTOP_LAUNCH_CMD", "  ");
  EXPECT_EQ(Config::desktopLaunchCommand(), "  ");
  writeDefaults(R"({"desktopLaunchCommand": ""})");
  EXPECT_EQ(Config::desktopLaunchCommand(), "  ");
  writeDefaults(R"({"desktopLaunchCommand": "run it"})");
  EXPECT_EQ(Config::desktopLaunchCommand(), "run it");
}

TEST_F(ConfigTest, FindsTheLegacyTailnetState) {
  EXPECT_EQ(Config::legacyTailnetStateDir(), directory_ / "home/.local/share/Zephyl/tailnet");
  const ScopedVariable data("XDG_DATA_HOME", "/d");
  EXPECT_EQ(Config::legacyTailnetStateDir(), "/d/Zephyl/tailnet");
  writeDefaults(R"({"tailnetStateDir": ""})");
  EXPECT_EQ(Config::legacyTailnetStateDir(), "/d/Zephyl/tailnet");
  writeDefaults(R"({"tailnetStateDir": "/elsewhere"})");
  EXPECT_EQ(Config::legacyTailnetStateDir(), "/elsewhere");
}

TEST_F(ConfigTest, FindsTheLegacyTailnetStateOfAUserWithoutAHomeAmongTemporaryFiles) {
  const ScopedVariable temporary("TMPDIR", "/t/");
  const auto found =
      test::holdsWithoutHome([] { return Config::legacyTailnetStateDir() == "/t/zephyl-tailnet"; });
  if (!found) GTEST_SKIP() << "needs the right to become another user";
  EXPECT_TRUE(*found);
}

TEST_F(ConfigTest, ReadsTheRootFromTheDefaultsThenFromTheEnvironment) {
  directory_.write("work/pnpm-workspace.yaml", "");
  const ScopedVariable root("ZEPHYL_REPO_ROOT", "/from/environment");
  EXPECT_EQ(Config::repoRoot(), "/from/environment");
  writeDefaults(R"({"repoRoot": "/from/defaults"})");
  EXPECT_EQ(Config::repoRoot(), "/from/defaults");
  writeDefaults(R"({"repoRoot": ""})");
  EXPECT_EQ(Config::repoRoot(), "/from/environment");
}

TEST_F(ConfigTest, DetectsTheRootWhenTheEnvironmentIsEmpty) {
  directory_.write("prefix/pnpm-workspace.yaml", "");
  const ScopedVariable root("ZEPHYL_REPO_ROOT", "");
  EXPECT_EQ(Config::repoRoot(), directory_ / "prefix");
}

TEST_F(ConfigTest, UsesTheWorkingDirectoryIfThereIsNoRoot) {
  EXPECT_EQ(Config::repoRoot(), directory_ / "work");
}

TEST_F(ConfigTest, PrefersTheTreeOfTheExecutableToThatOfTheWorkingDirectory) {
  directory_.write("work/pnpm-workspace.yaml", "");
  EXPECT_EQ(Config::repoRoot(), directory_ / "work");
  directory_.write("prefix/bin/pnpm-workspace.yaml", "");
  EXPECT_EQ(Config::repoRoot(), directory_ / "prefix/bin");
}

TEST_F(ConfigTest, SearchesElevenLevelsForTheRoot) {
  directory_.write("pnpm-workspace.yaml", "");
  const std::string eleven = directory_ / "1/2/3/4/5/6/7/8/9/10/11";
  EXPECT_EQ(Config::detectRepoRoot(eleven, std::nullopt), directory_.path());
  EXPECT_EQ(Config::detectRepoRoot(eleven + "/12", std::nullopt), std::nullopt);
  EXPECT_EQ(Config::detectRepoRoot(std::nullopt, eleven), directory_.path());
  EXPECT_EQ(Config::detectRepoRoot(eleven + "/12", eleven), directory_.path());
}

TEST_F(ConfigTest, UsesTheNearestRootWhateverKindOfFileMarksIt) {
  fs::create_directories(directory_ / "a/b/pnpm-workspace.yaml");
  directory_.write("a/pnpm-workspace.yaml", "");
  EXPECT_EQ(Config::detectRepoRoot(directory_ / "a/b/c", std::nullopt), directory_ / "a/b");
  EXPECT_EQ(Config::detectRepoRoot("/", "/"), std::nullopt);
  EXPECT_EQ(Config::detectRepoRoot(std::nullopt, std::nullopt), std::nullopt);
}

// Executables

TEST_F(ConfigTest, HasAPackagedRuntimeOnlyWithAnExecutableAgent) {
  EXPECT_EQ(Config::bundledRuntimeDir(), std::nullopt);
  directory_.write("prefix/share/zephyl-tray/agent/zephyl-agent", "");
  EXPECT_EQ(Config::bundledRuntimeDir(), std::nullopt);
  addProgram("prefix/share/zephyl-tray/agent/zephyl-agent");
  EXPECT_EQ(Config::bundledRuntimeDir(), bundled("agent"));
  Bundle::setMain(Bundle(directory_ / "build/zephyl-tray"));
  EXPECT_EQ(Config::bundledRuntimeDir(), std::nullopt);
}

TEST_F(ConfigTest, AcceptsAFileAsThePackagedDesktopApp) {
  EXPECT_EQ(Config::bundledDesktopApp(), std::nullopt);
  directory_.write("prefix/share/zephyl-tray/Zephyl Window.app", "");
  EXPECT_EQ(Config::bundledDesktopApp(), bundled("Zephyl Window.app"));
  Bundle::setMain(Bundle(std::nullopt));
  EXPECT_EQ(Config::bundledDesktopApp(), std::nullopt);
}

TEST_F(ConfigTest, PrefersThePackagedTailnetProgramsToThoseOfTheSourceTree) {
  directory_.write("work/pnpm-workspace.yaml", "");
  EXPECT_EQ(Config::tailnetBinary("tailscaled"), std::nullopt);
  const auto developed = addProgram("work/packages/tailnet-client/tailscaled");
  EXPECT_EQ(Config::tailnetBinary("tailscaled"), developed);
  EXPECT_EQ(Config::tailnetBinary("zephyl-tailnet"), std::nullopt);

  const auto packaged = addProgram("prefix/share/zephyl-tray/agent/tailscaled");
  EXPECT_EQ(Config::tailnetBinary("tailscaled"), developed) << "there is no packaged agent";
  addProgram("prefix/share/zephyl-tray/agent/zephyl-agent");
  EXPECT_EQ(Config::tailnetBinary("tailscaled"), packaged);
  fs::permissions(packaged, fs::perms::owner_read);
  EXPECT_EQ(Config::tailnetBinary("tailscaled"), developed);
}

TEST_F(ConfigTest, HasTheTailnetProgramsOnlyIfBothExist) {
  directory_.write("work/pnpm-workspace.yaml", "");
  EXPECT_FALSE(Config::tailnetProgramsInstalled());
  addProgram("work/packages/tailnet-client/tailscaled");
  EXPECT_FALSE(Config::tailnetProgramsInstalled());
  addProgram("work/packages/tailnet-client/zephyl-tailnet");
  EXPECT_TRUE(Config::tailnetProgramsInstalled());
}

TEST_F(ConfigTest, PrefersReleaseBuildsToDebugBuildsUnlessTheyCannotRun) {
  directory_.write("work/pnpm-workspace.yaml", "");
  EXPECT_EQ(Config::agentDevBinary(), std::nullopt);
  EXPECT_EQ(Config::desktopDevBinary(), std::nullopt);
  const std::string desktopTarget = "work/packages/desktop/src-tauri/target/";
  const auto debugAgent = addProgram("work/target/debug/zephyl-agent");
  const auto debugDesktop = addProgram(desktopTarget + "debug/zephyl-desktop");
  directory_.write("work/target/release/zephyl-agent", "");
  fs::create_directories(directory_ / (desktopTarget + "release/zephyl-desktop"));
  EXPECT_EQ(Config::agentDevBinary(), debugAgent);
  EXPECT_EQ(Config::desktopDevBinary(), debugDesktop);
  fs::remove_all(directory_ / (desktopTarget + "release"));
  const auto releaseAgent = addProgram("work/target/release/zephyl-agent");
  const auto releaseDesktop = addProgram(desktopTarget + "release/zephyl-desktop");
  EXPECT_EQ(Config::agentDevBinary(), releaseAgent);
  EXPECT_EQ(Config::desktopDevBinary(), releaseDesktop);
}

TEST_F(ConfigTest, JoinsPathsWithOneSeparator) {
  const auto agent = addProgram("work/target/debug/zephyl-agent");
  const ScopedVariable root("ZEPHYL_REPO_ROOT", directory_ / "work//");
  EXPECT_EQ(Config::agentDevBinary(), agent);
}

// The search path of programs

TEST_F(ConfigTest, UsesNoProgramsFromAWorkingDirectoryWithoutAMarker) {
  addProgram("work/target/debug/zephyl-agent");
  addProgram("work/packages/desktop/src-tauri/target/debug/zephyl-desktop");
  addProgram("work/packages/tailnet-client/tailscaled");
  EXPECT_EQ(Config::repoRoot(), directory_ / "work");
  EXPECT_EQ(Config::programRoot(), std::nullopt);
  EXPECT_EQ(Config::agentDevBinary(), std::nullopt);
  EXPECT_EQ(Config::desktopDevBinary(), std::nullopt);
  EXPECT_EQ(Config::tailnetBinary("tailscaled"), std::nullopt);
  const ScopedVariable root("ZEPHYL_REPO_ROOT", directory_ / "work");
  EXPECT_NE(Config::agentDevBinary(), std::nullopt) << "configured";
}

TEST_F(ConfigTest, UsesProgramsFromADetectedRootOnlyIfNobodyElseCanWriteIt) {
  const auto marker = directory_.write("work/pnpm-workspace.yaml", "");
  const auto agent = addProgram("work/target/debug/zephyl-agent");
  EXPECT_EQ(Config::agentDevBinary(), agent);
  for (const auto& open : {directory_ / "work", marker}) {
    const auto before = fs::status(open).permissions();
    for (const auto others : {fs::perms::group_write, fs::perms::others_write}) {
      fs::permissions(open, others, fs::perm_options::add);
      EXPECT_EQ(Config::repoRoot(), directory_ / "work");
      EXPECT_EQ(Config::programRoot(), std::nullopt) << open;
      EXPECT_EQ(Config::agentDevBinary(), std::nullopt) << open;
      fs::permissions(open, before);
    }
  }
  EXPECT_EQ(Config::agentDevBinary(), agent);
}

TEST_F(ConfigTest, UsesProgramsFromAConfiguredRootEvenIfOthersCanWriteIt) {
  const auto agent = addProgram("work/target/debug/zephyl-agent");
  fs::permissions(directory_ / "work", fs::perms::all);
  const ScopedVariable root("ZEPHYL_REPO_ROOT", directory_ / "work");
  EXPECT_EQ(Config::agentDevBinary(), agent);
}

TEST_F(ConfigTest, UsesNoProgramsFromADetectedRootOfAnotherUser) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root, to give files to another user";
  const auto marker = directory_.write("work/pnpm-workspace.yaml", "");
  const auto agent = addProgram("work/target/debug/zephyl-agent");
  constexpr uid_t another = 54399;
  for (const auto& foreign : {directory_ / "work", marker}) {
    ASSERT_EQ(::chown(foreign.c_str(), another, another), 0);
    EXPECT_EQ(Config::agentDevBinary(), std::nullopt) << foreign;
    ASSERT_EQ(::chown(foreign.c_str(), 0, 0), 0);
  }
  EXPECT_EQ(Config::agentDevBinary(), agent);
}

TEST_F(ConfigTest, APackagedProgramDetectsARootAboveItsExecutableOnly) {
  directory_.write("prefix/share/zephyl-tray/Info.json",
                   R"({"CFBundleIdentifier": "com.zephyl.tray"})");
  directory_.write("work/pnpm-workspace.yaml", "");
  addProgram("work/target/debug/zephyl-agent");
  EXPECT_EQ(Config::repoRoot(), directory_ / "work");
  EXPECT_EQ(Config::agentDevBinary(), std::nullopt);
  directory_.write("pnpm-workspace.yaml", "");
  const auto agent = addProgram("target/debug/zephyl-agent");
  EXPECT_EQ(Config::agentDevBinary(), agent);
}

TEST_F(ConfigTest, ReportsARefusedRootOnce) {
  directory_.write("work/pnpm-workspace.yaml", "");
  fs::permissions(directory_ / "work", fs::perms::others_write, fs::perm_options::add);
  const auto lines = test::logOf([] {
    (void)Config::programRoot();
    (void)Config::agentDevBinary();
  });
  EXPECT_EQ(lines,
            "[tray] programs in " + (directory_ / "work") +
                " are not used, because other users can write to it or to its "
                "pnpm-workspace.yaml; to use them, set ZEPHYL_REPO_ROOT to that directory\n");
}

TEST_F(ConfigTest, HasOneHandleOfTheDefaultsForAllThreads) {
  UserDefaults* seen = nullptr;
  std::thread([&] { seen = &Config::defaults(); }).join();
  EXPECT_EQ(seen, &Config::defaults());
  EXPECT_EQ(Config::defaults().path(), directory_ / "home/.config/com.zephyl.tray/defaults.json");
}

}  // namespace
}  // namespace zephyl
