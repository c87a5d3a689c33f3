#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace zephyl {

class UserDefaults;

/// The settings. Each is determined on every read from the user defaults, the environment and the
/// file system, so that a change takes effect at the next read. Unusable sources are skipped, so no
/// read fails. The class keeps only the handle of the user defaults and the directories that it has
/// reported as refused. Callable from any thread.
class Config {
 public:
  /// Returns the user defaults "com.zephyl.tray": one handle per process, created on first use.
  static UserDefaults& defaults();

  /// Returns the port of the agent: "trayPort", `AGENT_TRAY_PORT` or 8799. Greater than 0, but
  /// possibly greater than 65535.
  static std::int64_t trayPort();
  /// Returns the port of the control server: "onboardingPort", `ZEPHYL_ONBOARD_PORT` or 8801. The
  /// same range applies.
  static std::int64_t onboardingPort();
  /// Returns "http://127.0.0.1:<port>".
  static std::string apiBaseURL(std::int64_t port = trayPort());

  /// Returns the source tree of a developer: "repoRoot", `ZEPHYL_REPO_ROOT`, the detected root or
  /// the working directory. For display only: programs are run from `programRoot`.
  static std::string repoRoot();
  /// Returns the source tree that contains the programs and in which commands run: "repoRoot",
  /// `ZEPHYL_REPO_ROOT`, or the detected root if it and its marker belong to the user or root and
  /// nobody else can write them. A packaged program, which has a bundle identifier, detects a root
  /// only above its own executable. Returns nullopt if there is no such tree.
  static std::optional<std::string> programRoot();
  /// Returns the nearest directory that contains pnpm-workspace.yaml, among each of the two
  /// directories and eleven levels above it. Starts with the directory of the executable.
  static std::optional<std::string> detectRepoRoot(
      const std::optional<std::string>& executableDirectory,
      const std::optional<std::string>& currentDirectory);
  /// Returns "desktopLaunchCommand", `ZEPHYL_DESKTOP_LAUNCH_CMD` or "pnpm --filter @zephyl/desktop
  /// dev".
  static std::string desktopLaunchCommand();
  /// Returns the tailnet state directory of installations that supported only one server:
  /// "tailnetStateDir", else Zephyl/tailnet in the application-support directory.
  static std::string legacyTailnetStateDir();

  /// Returns the directory of the packaged agent, or nullopt if the package does not contain it.
  static std::optional<std::string> bundledRuntimeDir();
  /// Returns the path of the packaged desktop app, a file or a directory.
  static std::optional<std::string> bundledDesktopApp();
  /// Returns the path of the packaged "tailscaled" or "zephyl-tailnet", else the one in the source
  /// tree.
  static std::optional<std::string> tailnetBinary(const std::string& name);
  /// Returns whether both programs of a tailnet exist.
  static bool tailnetProgramsInstalled();
  /// Returns a developer's build of the agent. Prefers a release build to a debug build.
  static std::optional<std::string> agentDevBinary();
  /// Returns a developer's build of the desktop app, with the same preference.
  static std::optional<std::string> desktopDevBinary();
};

}  // namespace zephyl
