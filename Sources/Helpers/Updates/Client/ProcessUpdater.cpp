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
  static_cast<void>(setup_.settings.lastSuccess(now()));  // from now on checks may be missing
  confirmIfUnconfirmed();
  reportFailedVersion();
  planFirstCheck();
}

ProcessUpdater::~ProcessUpdater() = default;

std::unique_ptr<UpdaterController::Observation> ProcessUpdater::observeCanCheckForUpdates(
    std::function<void(bool)> changed) {
  return std::make_unique<Registration>(observers_, std::move(changed));
}

void ProcessUpdater::startSession(UpdateSession::Trigger trigger) {
  if (session_) return;
  UpdateSession::Events events;
  events.checked =
      weakly(self_, [trigger](ProcessUpdater* self, const std::optional<std::string>& failure) {
        self->checkEnded(trigger, failure);
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
    return plan(untilRetry(setup_.settings.checkInterval(), setup_.random()));
  }
  planNextCheck();
}

/// Plans the next check for the case that the session now waits; its end plans again.
void ProcessUpdater::checkEnded(UpdateSession::Trigger trigger,
                                const std::optional<std::string>& failure) {
  if (failure) {
    // A user who asked for a check is shown its failure, but not that of a later recheck.
    const bool isShown = trigger == UpdateSession::Trigger::user && !session_->isWaiting();
    if (!isShown) reportMissingChecks(*failure);
    return plan(untilRetry(setup_.settings.checkInterval(), setup_.random()));
  }
  setup_.settings.setMissingChecksTold(false);
  planNextCheck();
}

void ProcessUpdater::notifyObservers() {
  for (const auto& observer : Observers(*observers_)) (*observer)(canCheckForUpdates());
}

/// An update that was ready when the tray ended last does not wait for the next daily check.
void ProcessUpdater::planFirstCheck() {
  const auto files = UpdateFiles::trusted(setup_.prefix);
  if (!files || !isDirectory(files->staged)) return planNextCheck();
  plan(untilNextCheck(std::nullopt, now(), setup_.settings.checkInterval(), setup_.random()));
}

void ProcessUpdater::planNextCheck() {
  plan(untilNextCheck(setup_.settings.lastCheck(), now(), setup_.settings.checkInterval(),
                      setup_.random()));
}

void ProcessUpdater::plan(std::chrono::milliseconds delay) {
  due_ = runtime_.clock.calendarNow() + delay;
  dueInstant_ = runtime_.clock.now() + delay;
  scheduleTimer_ =
      runtime_.mainLoop.after(runtime_.clock, std::min<Duration>(delay, lookInterval),
                              weakly(self_, [](ProcessUpdater* self) { self->checkSchedule(); }));
}

void ProcessUpdater::checkSchedule() {
  using std::chrono::milliseconds;
  const auto left = std::chrono::ceil<milliseconds>(
      std::min<Duration>(due_ - runtime_.clock.calendarNow(), dueInstant_ - runtime_.clock.now()));
  if (left > milliseconds::zero()) return plan(left);
  if (!session_) return startSession(UpdateSession::Trigger::schedule);
  if (session_->isWaiting()) return session_->recheck();  // whose end plans the next
  plan(std::chrono::floor<milliseconds>(lookInterval));
}

std::chrono::sys_seconds ProcessUpdater::now() const {
  return std::chrono::floor<std::chrono::seconds>(runtime_.clock.calendarNow());
}

void ProcessUpdater::confirmIfUnconfirmed() {
  const auto files = UpdateFiles::trusted(setup_.prefix);
  const auto note = files ? readMarker(files->trial) : std::nullopt;
  if (!note) return;
  if (note->version != setup_.version) {
    return log("version {} is on trial, but this process is not that version",
               note->displayVersion);
  }
  trialTimer_ = runtime_.mainLoop.after(runtime_.clock, settleTime, [path = files->trial] {
    const auto removed = removePath(path);
    if (removed) log("version {} is up", Updater::currentVersion());
    if (!removed) log("could not confirm the update: {}", removed.error().message);
  });
}

void ProcessUpdater::reportFailedVersion() {
  const auto files = UpdateFiles::trusted(setup_.prefix);
  auto note = files ? readMarker(files->failed) : std::nullopt;
  if (!note || note->told) return;
  log("version {} failed to start; version {} was restored", note->displayVersion,
      Updater::currentVersion());
  note->told = true;
  if (const auto newest = setup_.settings.newestFeedDate(Updater::feedAddress())) {
    note->feedDate = newest->time_since_epoch().count();
  }
  if (const auto written = writeMarker(files->failed, *note); !written) {
    log("{}", written.error().message);
  }
  failureDialog_ = dialogs_.presentAlert(
      alerts::updateRolledBack(note->displayVersion, Updater::currentVersion()),
      [](const std::optional<AlertAnswer>&) {});
}

void ProcessUpdater::reportMissingChecks(const std::string& reason) {
  const bool tooLong = setup_.settings.lastSuccess(now()) < now() - missingChecksTimeout;
  if (!tooLong || setup_.settings.missingChecksTold()) return;
  log("no check for updates has succeeded for four weeks");
  setup_.settings.setMissingChecksTold(true);
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
