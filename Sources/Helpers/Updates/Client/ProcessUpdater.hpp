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

/// The update framework of Linux. Schedule and windows are in this process; everything that uses
/// the network, the feed or an archive is in zephyl-tray-updater, which runs only while it is
/// needed.
///
/// Checks for updates when the settings (UpdateSchedule.hpp) say so, also while an installation
/// waits. Confirms an unconfirmed version (see UpdateFiles) when it has run for `settleTime`;
/// otherwise the updater that watches rolls it back. Tells the user once about a version that was
/// rolled back, and once when no check has succeeded for `missingChecksTimeout`. Main thread.
class ProcessUpdater final : public UpdaterController {
 public:
  static constexpr Duration settleTime = std::chrono::seconds(1);
  /// The longest time between two checks of the schedule, because timers stop while the computer is
  /// suspended.
  static constexpr Duration lookInterval = std::chrono::hours(1);

  /// What `runtime` refers to, and `dialogs`, outlive the controllers that it makes.
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
  void checkEnded(UpdateSession::Trigger trigger, const std::optional<std::string>& failure);
  void notifyObservers();

  void plan(std::chrono::milliseconds delay);
  void planFirstCheck();
  void planNextCheck();
  void checkSchedule();
  [[nodiscard]] std::chrono::sys_seconds now() const;

  void confirmIfUnconfirmed();
  void reportFailedVersion();
  void reportMissingChecks(const std::string& reason);

  const Runtime runtime_;
  Dialogs& dialogs_;
  const UpdateSetup setup_;
  const std::weak_ptr<UpdateDelegate> delegate_;
  const std::shared_ptr<ProcessUpdater*> self_;  // expires with this
  std::shared_ptr<Observers> observers_ = std::make_shared<Observers>();
  std::shared_ptr<UpdateSession> session_;
  Dialogs::Handle failureDialog_;
  Dialogs::Handle missingChecksDialog_;
  std::chrono::system_clock::time_point due_;  // whichever comes first: the calendar counts time
  Instant dueInstant_;                         // in suspend, the other cannot be set back
  Timer scheduleTimer_;
  Timer trialTimer_;
};

/// Where zephyl-tray-updater is: beside the tray's executable, or in <prefix>/libexec/zephyl-tray.
std::string updaterProgram(const Bundle& bundle);
/// The directory above the executable's; empty when that is not in a directory "bin".
std::string installationPrefix(const Bundle& bundle);

}  // namespace zephyl
