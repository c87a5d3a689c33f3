#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "System/Concurrency/Runtime.hpp"
#include "System/Data/Secret.hpp"
#include "System/Processes/ChildProcess.hpp"

namespace zephyl {

class Desktop;

/// The address and the token of the tray's control server.
struct ControlAccess {
  SecretString token;
  std::int64_t port = 0;
};

/// The values that the desktop window app receives at its start: how to reach the tray's control
/// server, and what to show.
struct DesktopLaunch {
  std::optional<std::string> serverURL;  ///< the primary server's web address
  bool needsOnboarding = false;          ///< no server is usable yet
  std::optional<ControlAccess> control;  ///< nullopt if the control server does not listen

  /// Returns `inherited` with these values as environment variables. Variables without a value here
  /// keep their inherited value, except for those of the control server, which are removed because
  /// another program may listen on its port.
  [[nodiscard]] Environment environment(Environment inherited = {}) const;
};

/// Starts the desktop window app, a separate program, or brings it to the front. Prefers the
/// packaged app, then a developer's build, then the developer's command in a login shell. The build
/// and the command belong to `Config::programRoot`.
///
/// A copy counts as running if the desktop session reports one with the identifier, or if a child
/// that was started here is alive. A running copy is not started again, so it keeps the token and
/// the addresses from its start. A failure to start is only logged, without a retry.
///
/// Main thread only. Owned by a `shared_ptr`. Children hold it weakly and end with the tray.
class DesktopApp : public std::enable_shared_from_this<DesktopApp> {
 public:
  static constexpr auto identifier = "com.zephyl.desktop";

  /// The objects that `runtime` refers to, and `desktop`, must outlive it.
  DesktopApp(const Runtime& runtime, Desktop& desktop) : runtime_(runtime), desktop_(desktop) {}

  /// Activates a running copy, or starts one. Logs a line first if the control server does not
  /// listen.
  void launch(const DesktopLaunch& context);
  /// Asks all running copies to end. Does not wait.
  void quit();
  /// Waits until `deadline` for the child that `quit` asked to end, then kills its process group.
  void awaitExit(Instant deadline);

  /// Returns whether there is a desktop app to launch.
  [[nodiscard]] static bool isInstalled();

 private:
  /// One child, from its launch to its exit or to `quit`.
  struct DevProcess {
    std::uint64_t number = 0;
    std::shared_ptr<ChildProcess> child;
  };

  [[nodiscard]] bool activateRunning();
  void start(const DesktopLaunch& context);
  void runDevProcess(const char* what, std::string executable, std::vector<std::string> arguments,
                     const DesktopLaunch& context);
  void childExited(std::uint64_t launch);

  const Runtime runtime_;
  Desktop& desktop_;
  std::optional<DevProcess> devProcess_;
  std::shared_ptr<ChildProcess> ending_;  // asked to end by `quit`
  std::uint64_t launches_ = 0;
};

}  // namespace zephyl
