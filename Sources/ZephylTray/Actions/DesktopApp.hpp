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

/// How a program reaches the tray's control server.
struct ControlAccess {
  SecretString token;
  std::int64_t port = 0;
};

/// What the desktop window app receives at its start: how to reach the tray's control server, and
/// what to show.
struct DesktopLaunch {
  std::optional<std::string> serverURL;  ///< the primary server's web address
  bool needsOnboarding = false;          ///< there is no usable server yet
  std::optional<ControlAccess> control;  ///< nullopt: the control server does not listen

  /// Returns `inherited` with these values as environment variables. Variables of values that are
  /// absent keep their inherited value, except for those of the control server, which are removed:
  /// another program may listen on its port.
  [[nodiscard]] Environment environment(Environment inherited = {}) const;
};

/// Starts the desktop window app, a program of its own, or brings it to the front. The packaged
/// app comes first, then a developer's build, then the developer's command in a login shell; the
/// build and the command belong to `Config::programRoot`.
///
/// A copy counts as running when the desktop knows one under the identifier, or when a child
/// started here is alive; one that runs is never started again, so it keeps the token and the
/// addresses that it was started with. A failure to start is logged and nothing more; nothing is
/// tried again.
///
/// Main thread only. Owned by a `shared_ptr`; children hold it weakly, and end with the tray.
class DesktopApp : public std::enable_shared_from_this<DesktopApp> {
 public:
  static constexpr auto identifier = "com.zephyl.desktop";

  /// What `runtime` refers to, and `desktop`, outlive it.
  DesktopApp(const Runtime& runtime, Desktop& desktop) : runtime_(runtime), desktop_(desktop) {}

  /// Activates a running copy, else starts one, after a log line when the control server does not
  /// listen.
  void launch(const DesktopLaunch& context);
  /// Asks every running copy to end. Does not wait.
  void quit();
  /// Waits until the child that `quit` asked to end has done so, until `deadline` at most; then
  /// kills its process group.
  void awaitExit(Instant deadline);

  /// Whether a launch can work.
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
  std::shared_ptr<ChildProcess> ending_;  // was asked to by `quit`
  std::uint64_t launches_ = 0;
};

}  // namespace zephyl
