#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace zephyl {

class UserDefaults;

/// The settings. Each is worked out afresh on every read, from the user defaults, the environment
/// and the file system, so that a change counts at the next read; a source that is unusable falls
/// through to the next one, so no read fails. Nothing is kept but the handle of the user defaults
/// and the directories that were reported as refused. Callable from any thread.
class Config {
 public:
  /// The user defaults "com.zephyl.tray": one handle for the process, made on first use.
  static UserDefaults& defaults();

  /// Where the agent listens: "trayPort", `AGENT_TRAY_PORT`, 8799. Greater than 0, but nothing
  /// keeps it below 65536.
  static std::int64_t trayPort();
  /// Where the control server listens: "onboardingPort", `ZEPHYL_ONBOARD_PORT`, 8801; likewise.
  static std::int64_t onboardingPort();
  /// "http://127.0.0.1:<port>".
  static std::string apiBaseURL(std::int64_t port = trayPort());

  /// The source tree of a developer: "repoRoot", `ZEPHYL_REPO_ROOT`, the detected root, the
  /// working directory. For display; programs are taken from `programRoot`.
  static std::string repoRoot();
  /// The source tree from which programs are taken and in which commands run: "repoRoot",
  /// `ZEPHYL_REPO_ROOT`, or the detected root if both it and its marker belong to the user or root
  /// and nobody else can write them. A packaged program, which is one with a bundle identifier,
  /// detects a root above its own executable only. nullopt when there is no such tree.
  static std::optional<std::string> programRoot();
  /// The nearest directory that holds a pnpm-workspace.yaml, among each of the two directories
  /// and eleven levels above it; the tree of the executable comes first.
  static std::optional<std::string> detectRepoRoot(
      const std::optional<std::string>& executableDirectory,
      const std::optional<std::string>& currentDirectory);
  /// "desktopLaunchCommand", `ZEPHYL_DESKTOP_LAUNCH_CMD`, "pnpm --filter @zephyl/desktop dev".
  static std::string desktopLaunchCommand();
  /// Where tailnet state lay when there was one server only: "tailnetStateDir", else
  /// Zephyl/tailnet under the application-support directory.
  static std::string legacyTailnetStateDir();

  /// The directory of the packaged agent; none when the program was shipped without.
  static std::optional<std::string> bundledRuntimeDir();
  /// The packaged desktop app, a file or a directory.
  static std::optional<std::string> bundledDesktopApp();
  /// The packaged "tailscaled" or "zephyl-tailnet", else the one in the source tree.
  static std::optional<std::string> tailnetBinary(const std::string& name);
  /// Whether both programs of a tailnet are there.
  static bool tailnetProgramsInstalled();
  /// A developer's build of the agent; a release build comes before a debug one.
  static std::optional<std::string> agentDevBinary();
  /// A developer's build of the desktop app, likewise.
  static std::optional<std::string> desktopDevBinary();
};

}  // namespace zephyl
