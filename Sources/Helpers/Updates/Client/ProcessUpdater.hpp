#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Desktop/Dialogs.hpp"
#include "Helpers/Updates/Client/UpdateFramework.hpp"
#include "Helpers/Updates/Client/UpdateSession.hpp"
#include "System/Concurrency/Clock.hpp"
#include "System/Concurrency/Runtime.hpp"

namespace zephyl {

class Bundle;

/// The update framework of Linux. This process contains the schedule and the windows. The network,
/// the feed and archives are handled by zephyl-tray-updater, which runs only when needed.
///
/// Checks for updates as the settings (UpdateSchedule.hpp) require, also while an installation
/// waits. Confirms an unconfirmed version (see UpdateFiles) after it has run for `settleTime`.
/// Otherwise the watching updater rolls it back. Notifies the user once about a version that was
/// rolled back, and once if no check has succeeded for `missingChecksTimeout`. Main thread only.
class ProcessUpdater final : public UpdaterController {
 public:
  static constexpr Duration settleTime = std::chrono::seconds(1);
  /// The longest time between two checks of the schedule. It is limited because timers stop while
  /// the computer is suspended.
  static constexpr Duration maxTimerInterval = std::chrono::hours(1);

  /// The objects that `runtime` refers to, and `dialogs`, must outlive the controllers that the
  /// factory creates.
  static UpdaterFactory factory(const Runtime& runtime, Dialogs& dialogs, UpdateSetup setup);

  ProcessUpdater(const Runtime& runtime, Dialogs& dialogs, UpdateSetup setup,
                 std::weak_ptr<UpdateDelegate> delegate);
  ~ProcessUpdater() override;
  ProcessUpdater(const ProcessUpdater&) = delete;
  ProcessUpdater& operator=(const ProcessUpdater&) = delete;

  [[nodiscard]] bool canCheckForUpdates() const override { return session_ == nullptr; }
  [[nodiscard]] std::unique_ptr<Observation> observeCanCheckForUpdates(
      std::function<void(bool)> changed) override;
  void checkForUpdates() override { startSession(UpdateSession::Trigger::user); }

 private:
  class Registration;
  using Observers = std::vector<std::shared_ptr<std::function<void(bool)>>>;

  void startSession(UpdateSession::Trigger trigger);
  void endSession(UpdateSession::Trigger trigger, UpdateSession::Outcome outcome);
  void handleCheckEnd(UpdateSession::Trigger trigger, const std::optional<std::string>& failure);
  void notifyObservers();

  void schedule(std::chrono::milliseconds delay);
  void scheduleFirstCheck();
  void scheduleNextCheck();
  void checkSchedule();
  [[nodiscard]] std::chrono::sys_seconds now() const;

  void confirmIfUnconfirmed();
  void reportFailedVersion();
  void reportMissingChecks(const std::string& reason);

  const Runtime runtime_;
  Dialogs& dialogs_;
  const UpdateSetup setup_;
  const std::weak_ptr<UpdateDelegate> delegate_;
  const std::shared_ptr<ProcessUpdater*>
      self_;  // weakly held by callbacks, so that they end with this
  std::shared_ptr<Observers> observers_ = std::make_shared<Observers>();
  std::shared_ptr<UpdateSession> session_;
  Dialogs::Handle failureDialog_;
  Dialogs::Handle missingChecksDialog_;
  std::chrono::system_clock::time_point
      due_;             // the next check is due at the earlier of both times: the
  Instant dueInstant_;  // calendar advances in suspend, the other cannot be set back
  Timer scheduleTimer_;
  Timer trialTimer_;
};

/// Returns the path of zephyl-tray-updater: beside the tray's executable, or in
/// <prefix>/libexec/zephyl-tray.
std::string updaterProgram(const Bundle& bundle);
/// Returns the directory above the executable's "bin" directory, or empty if it is not in one.
std::string installationPrefix(const Bundle& bundle);

}  // namespace zephyl
