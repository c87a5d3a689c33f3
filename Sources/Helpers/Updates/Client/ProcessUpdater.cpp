#include "Helpers/Updates/Client/ProcessUpdater.hpp"

#include <algorithm>
#include <utility>

#include "Helpers/Updates/Client/UpdateAlerts.hpp"
#include "Helpers/Updates/Client/UpdateSchedule.hpp"
#include "Helpers/Updates/Client/Updater.hpp"
#include "Helpers/Updates/Protocol/UpdateFiles.hpp"
#include "System/Concurrency/MainLoop.hpp"
#include "System/Concurrency/Weakly.hpp"
#include "System/Files/Bundle.hpp"
#include "System/Files/Files.hpp"
#include "System/Files/Log.hpp"

namespace zephyl {

class ProcessUpdater::Registration final : public Observation {
 public:
  Registration(std::shared_ptr<Observers> observers, std::function<void(bool)> changed)
      : observers_(std::move(observers)),
        changed_(std::make_shared<std::function<void(bool)>>(std::move(changed))) {
    observers_->push_back(changed_);
  }
  ~Registration() override { std::erase(*observers_, changed_); }
  Registration(const Registration&) = delete;
  Registration& operator=(const Registration&) = delete;

 private:
  const std::shared_ptr<Observers> observers_;
  const std::shared_ptr<std::function<void(bool)>> changed_;
};

UpdaterFactory ProcessUpdater::factory(const Runtime& runtime, Dialogs& dialogs,
                                       UpdateSetup setup) {
  return [runtime, &dialogs, setup = std::move(setup)](
             std::weak_ptr<UpdateDelegate> delegate) -> std::unique_ptr<UpdaterController> {
    if (!isExecutableFile(setup.program)) {
      log("no updates: {} is missing", setup.program);
      return nullptr;
    }
    return std::make_unique<ProcessUpdater>(runtime, dialogs, setup, std::move(delegate));
  };
}

ProcessUpdater::ProcessUpdater(const Runtime& runtime, Dialogs& dialogs, UpdateSetup setup,
                               std::weak_ptr<UpdateDelegate> delegate)
    : runtime_(runtime),
      dialogs_(dialogs),
      setup_(std::move(setup)),
      delegate_(std::move(delegate)),
      self_(std::make_shared<ProcessUpdater*>(this)) {
  static_cast<void>(
      setup_.settings.lastSuccess(now()));  // records the time from which checks may be missing
  confirmIfUnconfirmed();
  reportFailedVersion();
  scheduleFirstCheck();
}

ProcessUpdater::~ProcessUpdater() = default;

std::unique_ptr<UpdaterController::Observation> ProcessUpdater::observeCanCheckForUpdates(
    std::function<void(bool)> changed) {
  return std::make_unique<Registration>(observers_, std::move(changed));
}

void ProcessUpdater::startSession(UpdateSession::Trigger trigger) {
  if (session_) {
    if (trigger == UpdateSession::Trigger::user) session_->bringToFront();
    return;
  }
  UpdateSession::Events events;
  events.checked =
      weakly(self_, [trigger](ProcessUpdater* self, const std::optional<std::string>& failure) {
        self->handleCheckEnd(trigger, failure);
      });
  events.ended = weakly(self_, [trigger](ProcessUpdater* self, UpdateSession::Outcome outcome) {
    self->endSession(trigger, outcome);
  });
  session_ =
      std::make_shared<UpdateSession>(runtime_, dialogs_, setup_, delegate_, std::move(events));
  session_->start(trigger);
  notifyObservers();
}

void ProcessUpdater::endSession(UpdateSession::Trigger trigger, UpdateSession::Outcome outcome) {
  session_.reset();
  notifyObservers();
  const bool failed = outcome == UpdateSession::Outcome::failed;
  if (failed && trigger == UpdateSession::Trigger::schedule) {
    return schedule(untilRetry(setup_.settings.checkInterval(), setup_.random()));
  }
  scheduleNextCheck();
}

/// Schedules the next check in case the session waits now. The end of the session schedules again.
void ProcessUpdater::handleCheckEnd(UpdateSession::Trigger trigger,
                                    const std::optional<std::string>& failure) {
  if (failure) {
    // A failure is shown to a user who requested the check, but not the failure of a later recheck.
    const bool isShown = trigger == UpdateSession::Trigger::user && !session_->isWaiting();
    if (!isShown) reportMissingChecks(*failure);
    return schedule(untilRetry(setup_.settings.checkInterval(), setup_.random()));
  }
  setup_.settings.setMissingChecksReported(false);
  scheduleNextCheck();
}

void ProcessUpdater::notifyObservers() {
  for (const auto& observer : Observers(*observers_)) (*observer)(canCheckForUpdates());
}

/// An update that was ready when the tray ended must not wait for the next daily check.
void ProcessUpdater::scheduleFirstCheck() {
  const auto files = UpdateFiles::trusted(setup_.prefix);
  if (!files || !isDirectory(files->staged)) return scheduleNextCheck();
  schedule(untilNextCheck(std::nullopt, now(), setup_.settings.checkInterval(), setup_.random()));
}

void ProcessUpdater::scheduleNextCheck() {
  schedule(untilNextCheck(setup_.settings.lastCheck(), now(), setup_.settings.checkInterval(),
                          setup_.random()));
}

void ProcessUpdater::schedule(std::chrono::milliseconds delay) {
  due_ = runtime_.clock.calendarNow() + delay;
  dueInstant_ = runtime_.clock.now() + delay;
  scheduleTimer_ =
      runtime_.mainLoop.after(runtime_.clock, std::min<Duration>(delay, maxTimerInterval),
                              weakly(self_, [](ProcessUpdater* self) { self->checkSchedule(); }));
}

void ProcessUpdater::checkSchedule() {
  using std::chrono::milliseconds;
  const auto left = std::chrono::ceil<milliseconds>(
      std::min<Duration>(due_ - runtime_.clock.calendarNow(), dueInstant_ - runtime_.clock.now()));
  if (left > milliseconds::zero()) return schedule(left);
  if (!session_) return startSession(UpdateSession::Trigger::schedule);
  if (session_->isWaiting()) return session_->recheck();  // its end schedules the next check
  schedule(std::chrono::floor<milliseconds>(maxTimerInterval));
}

std::chrono::sys_seconds ProcessUpdater::now() const {
  return std::chrono::floor<std::chrono::seconds>(runtime_.clock.calendarNow());
}

void ProcessUpdater::confirmIfUnconfirmed() {
  const auto files = UpdateFiles::trusted(setup_.prefix);
  const auto marker = files ? readMarker(files->trial) : std::nullopt;
  if (!marker) return;
  if (marker->version != setup_.version) {
    return log("version {} is unconfirmed, but this process runs another version",
               marker->displayVersion);
  }
  trialTimer_ = runtime_.mainLoop.after(runtime_.clock, settleTime, [path = files->trial] {
    const auto removed = removePath(path);
    if (removed) log("version {} is confirmed", Updater::currentVersion());
    if (!removed) log("could not confirm the update: {}", removed.error().message);
  });
}

void ProcessUpdater::reportFailedVersion() {
  const auto files = UpdateFiles::trusted(setup_.prefix);
  auto marker = files ? readMarker(files->failed) : std::nullopt;
  if (!marker || marker->told) return;
  log("version {} failed to start; version {} was restored", marker->displayVersion,
      Updater::currentVersion());
  marker->told = true;
  if (const auto newest = setup_.settings.newestFeedDate(Updater::feedAddress())) {
    marker->feedDate = newest->time_since_epoch().count();
  }
  if (const auto written = writeMarker(files->failed, *marker); !written) {
    log("could not record the failed version: {}", written.error().message);
  }
  failureDialog_ = dialogs_.presentAlert(
      alerts::updateRolledBack(marker->displayVersion, Updater::currentVersion()),
      [](const std::optional<AlertAnswer>&) {});
}

void ProcessUpdater::reportMissingChecks(const std::string& reason) {
  const bool tooLong = setup_.settings.lastSuccess(now()) < now() - missingChecksTimeout;
  if (!tooLong || setup_.settings.missingChecksReported()) return;
  log("no check for updates has succeeded for four weeks");
  setup_.settings.setMissingChecksReported(true);
  missingChecksDialog_ = dialogs_.presentAlert(alerts::updateChecksMissing(reason),
                                               [](const std::optional<AlertAnswer>&) {});
}

std::string updaterProgram(const Bundle& bundle) {
  const std::string directory = parentDirectory(bundle.executable().value_or(""));
  std::string beside = joinPath(directory, "zephyl-tray-updater");
  if (isExecutableFile(beside)) return beside;
  return joinPath(parentDirectory(directory), "libexec/zephyl-tray/zephyl-tray-updater");
}

std::string installationPrefix(const Bundle& bundle) {
  constexpr std::string_view inPrefix = "/bin/zephyl-tray";
  const std::string executable = bundle.executable().value_or("");
  if (!executable.ends_with(inPrefix)) return {};
  return executable.substr(0, executable.size() - inPrefix.size());
}

}  // namespace zephyl
