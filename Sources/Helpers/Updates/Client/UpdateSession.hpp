#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Desktop/Dialogs.hpp"
#include "Helpers/Updates/Client/DownloadWindow.hpp"
#include "Helpers/Updates/Client/UpdateFramework.hpp"
#include "Helpers/Updates/Client/UpdateSetup.hpp"
#include "Helpers/Updates/Client/UpdaterProcess.hpp"
#include "Helpers/Updates/Protocol/UpdateMessages.hpp"
#include "System/Concurrency/Clock.hpp"
#include "System/Concurrency/Runtime.hpp"

namespace zephyl {

/// One check for updates and its consequences. Each step is one run of the updater program: check,
/// then download and verification if the user agrees or updates are installed automatically, then
/// installation if the delegate does not postpone it, and then the relaunch, which another run
/// watches.
///
/// While the delegate postpones the installation, `recheck` checks again: a newer version replaces
/// the waiting one, and a version that is no longer offered is not installed.
///
/// A check on request of the user shows its result. A scheduled check leaves that to the delegate,
/// shows no window and only logs failures. A failed step changes nothing in the installation. Main
/// thread only.
class UpdateSession : public std::enable_shared_from_this<UpdateSession> {
 public:
  enum class Trigger { user, schedule };
  enum class Outcome { done, failed };

  struct Events {
    /// Called after each check, with the reason if it has failed.
    std::function<void(const std::optional<std::string>& failure)> checked;
    /// Called once, later, unless the tray is relaunched.
    std::function<void(Outcome)> ended;
  };

  /// The objects that `runtime` refers to, `dialogs` and `setup` must outlive it.
  UpdateSession(const Runtime& runtime, Dialogs& dialogs, const UpdateSetup& setup,
                std::weak_ptr<UpdateDelegate> delegate, Events events);

  void start(Trigger trigger);

  /// Brings the session's open window to the front. Does nothing if none is open.
  void bringToFront();

  /// Returns whether the installation is postponed and no `recheck` is in progress.
  [[nodiscard]] bool isWaiting() const { return stage_ == Stage::waiting; }
  /// Checks for updates again. Requires `isWaiting()`.
  void recheck();

 private:
  enum class Stage {
    checking,     // including the user's decision
    downloading,  // including a version that replaces a waiting one
    waiting,      // for the delegate's permission
    rechecking,   // while waiting
    allowed,      // the delegate has permitted the installation during the recheck
    installing,
  };

  using Handler = void (UpdateSession::*)(const UpdateReport&);
  /// Starts a step. `handler` is called with each of its reports.
  void run(const UpdateCommand& command, Handler handler);

  /// Records the result of a check in the settings. Returns whether the check has succeeded.
  bool recordCheck(const UpdateReport& report);
  void handleCheck(const UpdateReport& report);
  void handleRecheck(const UpdateReport& report);
  void replace(const UpdateFound& found);
  void handleFound(const UpdateFound& found);
  void remind();
  void show();
  void logObstacle() const;
  void explainObstacle();
  void choose(const std::optional<AlertAnswer>& answer);
  void download();
  void showDownload();
  void cancelDownload();
  void handleDownload(const UpdateReport& report);
  void relaunchWhenAllowed();
  /// Handles that the delegate no longer postpones the installation.
  void allowInstallation();
  void install();
  void handleInstallation(const UpdateReport& report);

  /// Shows an informative alert if the user requested the check. Then ends the session.
  void conclude(Alert alert, Outcome outcome);
  void fail(const std::string& reason);
  void end(Outcome outcome);

  [[nodiscard]] bool isUserInitiated() const { return trigger_ == Trigger::user; }
  [[nodiscard]] UpdateItem item() const;
  void notify(const std::function<void(UpdateDelegate&)>& event) const;

  const Runtime runtime_;
  Dialogs& dialogs_;
  const UpdateSetup& setup_;
  const std::weak_ptr<UpdateDelegate> delegate_;
  Events events_;
  Trigger trigger_ = Trigger::schedule;
  bool showsWindows_ = false;
  std::string activationToken_;  // of the user's request, for the first window
  Stage stage_ = Stage::checking;
  UpdateOffer offer_;
  std::optional<std::string> obstacle_;
  std::unique_ptr<UpdaterProcess> updater_;
  Dialogs::Handle dialog_;
  std::unique_ptr<DownloadWindow> downloadWindow_;
};

}  // namespace zephyl
