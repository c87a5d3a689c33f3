#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Desktop/Dialogs.hpp"
#include "Helpers/Updates/Client/UpdateFramework.hpp"
#include "Helpers/Updates/Client/UpdateSchedule.hpp"
#include "Helpers/Updates/Client/UpdaterProcess.hpp"
#include "Helpers/Updates/Protocol/UpdateMessages.hpp"
#include "System/Concurrency/Clock.hpp"
#include "System/Concurrency/Runtime.hpp"

namespace zephyl {

/// What updates need to know of the program that is to be updated.
struct UpdateSetup {
  std::string program;                 ///< the path of zephyl-tray-updater
  std::string prefix;                  ///< of the installation: the directory above bin
  std::string version;                 ///< the running version, as versions are compared
  std::vector<std::string> arguments;  ///< the tray's own, for the next version
  /// Ends the tray in order, and becomes the program that then stands in its place.
  std::function<void()> relaunch;
  std::function<double()> random;  ///< in [0, 1)
  UpdateSettings settings;
};

/// One check for updates and all that follows from it. The steps, each a run of the updater
/// program: check; if the user agrees (or wants no questions) download, which verifies; if the
/// delegate does not postpone it, install; then the relaunch, which another run watches.
///
/// While the delegate postpones the installation, `recheck` looks for updates again: a newer
/// version replaces the one that waits, and one that is no longer offered is not installed.
///
/// A check that the user asked for shows its result; a scheduled one leaves that to the
/// delegate, shows no window, and only logs failures. What can fail changes nothing
/// of the installation. Main thread.
class UpdateSession : public std::enable_shared_from_this<UpdateSession> {
 public:
  enum class Trigger { user, schedule };
  enum class Outcome { done, failed };

  struct Events {
    /// Called after each check, with the reason if it failed.
    std::function<void(const std::optional<std::string>& failure)> checked;
    /// Called once, later, unless the tray is relaunched.
    std::function<void(Outcome)> ended;
  };

  /// What `runtime` refers to, `dialogs` and `setup` outlive it.
  UpdateSession(const Runtime& runtime, Dialogs& dialogs, const UpdateSetup& setup,
                std::weak_ptr<UpdateDelegate> delegate, Events events);

  void start(Trigger trigger);

  /// Whether the installation is postponed and no `recheck` is under way.
  [[nodiscard]] bool isWaiting() const { return stage_ == Stage::waiting; }
  /// Looks for updates again. Requires `isWaiting()`.
  void recheck();

  /// Progress comes more often than anybody reads it; it is drawn this often at most.
  static constexpr Duration progressInterval = std::chrono::milliseconds(250);

 private:
  enum class Stage {
    checking,     // also while the user is asked
    downloading,  // also a version that replaces one that waits
    waiting,      // for the delegate
    rechecking,   // while waiting
    allowed,      // by the delegate, during the recheck
    installing,
  };

  [[nodiscard]] CheckCommand checkCommand() const;
  using Handler = void (UpdateSession::*)(const UpdateReport&);
  /// Starts a step. `handler` is called with each of its reports.
  void run(const UpdateCommand& command, Handler handler);

  /// Remembers what a check found out about the feed. Returns whether the check succeeded.
  bool recordCheck(const UpdateReport& report);
  void handleCheck(const UpdateReport& report);
  void handleRecheck(const UpdateReport& report);
  void replace(const UpdateFound& found);
  void find(const UpdateFound& found);
  void remind();
  void show();
  void explainObstacle();
  void choose(const std::optional<AlertAnswer>& answer);
  void download();
  void showDownload();
  void cancelDownload();
  void handleDownload(const UpdateReport& report);
  void showProgress(const UpdateProgress& progress);
  void drawProgress();
  void relaunchWhenAllowed();
  /// The delegate no longer postpones the installation.
  void allowInstallation();
  void install();
  void handleInstallation(const UpdateReport& report);
  [[nodiscard]] std::string watcherProgram() const;
  void watchRelaunch();

  /// Shows an alert that only informs, to a user who asked; then the session is over.
  void conclude(const Alert& alert, Outcome outcome);
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
  Stage stage_ = Stage::checking;
  UpdateOffer offer_;
  std::optional<std::string> obstacle_;
  std::unique_ptr<UpdaterProcess> updater_;
  Dialogs::Handle dialog_;
  std::optional<UpdateProgress> progress_;  // to be drawn
  Timer progressPause_;                     // until it may be
};

}  // namespace zephyl
