#include "ZephylTray/UpdateSession.hpp"

#include <utility>

#include <unistd.h>

#include "System/JSON.hpp"
#include "System/Log.hpp"
#include "System/MainLoop.hpp"
#include "UpdateMessages/UpdateFiles.hpp"
#include "ZephylTray/UpdateAlerts.hpp"
#include "ZephylTray/UpdateSchedule.hpp"
#include "ZephylTray/Updater.hpp"

namespace zephyl {

namespace {

/// From the beginning of the shutdown until the new version reports itself up.
constexpr std::chrono::seconds relaunchLimit{60};

}  // namespace

UpdateSession::UpdateSession(const Runtime& runtime, Dialogs& dialogs, const UpdateSetup& setup,
                             std::weak_ptr<UpdateDelegate> delegate,
                             std::function<void(Outcome)> ended)
    : runtime_(runtime),
      dialogs_(dialogs),
      setup_(setup),
      delegate_(std::move(delegate)),
      ended_(std::move(ended)) {}

void UpdateSession::start(Trigger trigger) {
  trigger_ = trigger;
  run({.check = checkCommand()}, &UpdateSession::takeChecked);
}

/// Who asks by hand gets to see what was skipped, or has failed before.
CheckCommand UpdateSession::checkCommand() const {
  CheckCommand command{.prefix = setup_.prefix,
                       .channels = updateSettings::channels(),
                       .rolloutGroup = updateSettings::rolloutGroup(setup_.random),
                       .userInitiated = isUserInitiated()};
  if (isUserInitiated()) return command;
  if (auto skipped = updateSettings::skippedVersion()) command.skip.push_back(std::move(*skipped));
  const auto failed = readNote(UpdateFiles::of(setup_.prefix).failed);
  if (failed) command.skip.push_back(failed->version);
  return command;
}

void UpdateSession::run(const UpdateCommand& command,
                        void (UpdateSession::*take)(const UpdateReport&)) {
  run_ = UpdaterRun::start(
      runtime_.mainLoop, runtime_.launcher, setup_.program, command,
      weakly([take](UpdateSession& self, const UpdateReport& report) { (self.*take)(report); }));
}

void UpdateSession::takeChecked(const UpdateReport& report) {
  if (report.found || report.upToDate) {
    updateSettings::setLastCheck(
        std::chrono::floor<std::chrono::seconds>(runtime_.clock.calendarNow()));
  }
  if (report.found) return find(*report.found);
  if (!report.upToDate) return fail(report.failed.value_or(""));
  tell([](UpdateDelegate& delegate) { delegate.didNotFindUpdate(); });
  conclude(alerts::upToDate(Updater::currentVersion()), Outcome::done);
}

void UpdateSession::find(const FoundUpdate& found) {
  offer_ = found.offer;
  obstacle_ = found.obstacle;
  log("version {} is available", offer_.displayVersion);
  tell([&](UpdateDelegate& delegate) { delegate.didFindValidUpdate(item()); });
  if (isUserInitiated()) return show();
  remind();
}

void UpdateSession::remind() {
  // A scheduled check never comes in front of the user by itself.
  const auto delegate = delegate_.lock();
  const bool handled = delegate && (!delegate->supportsGentleScheduledUpdateReminders() ||
                                    delegate->shouldHandleShowingScheduledUpdate(
                                        item(), /*inImmediateFocus=*/false));
  if (handled) return show();
  tell([&](UpdateDelegate& each) { each.willHandleShowingUpdate(false, item(), {}); });
  if (updateSettings::installsAutomatically() && !obstacle_) return download();
  if (obstacle_) log("{}", *obstacle_);
  end(Outcome::done);
}

void UpdateSession::show() {
  tell([&](UpdateDelegate& delegate) {
    delegate.willHandleShowingUpdate(true, item(), {.userInitiated = isUserInitiated()});
  });
  if (obstacle_) return explainObstacle();
  Alert alert = alerts::updateFound(offer_, Updater::currentVersion());
  alert.requestedByUser = isUserInitiated();
  dialog_ = dialogs_.presentAlert(
      alert, weakly([](UpdateSession& self, const std::optional<AlertAnswer>& answer) {
        self.choose(answer);
      }));
}

void UpdateSession::explainObstacle() {
  tell([&](UpdateDelegate& delegate) { delegate.didReceiveUserAttention(item()); });
  log("{}", *obstacle_);
  conclude(alerts::updateFoundElsewhere(offer_, Updater::currentVersion(), *obstacle_),
           Outcome::done);
}

void UpdateSession::choose(const std::optional<AlertAnswer>& answer) {
  dialog_.reset();
  if (!answer) return end(Outcome::done);  // nobody has seen it: the menu goes on offering it
  tell([&](UpdateDelegate& delegate) { delegate.didReceiveUserAttention(item()); });
  switch (static_cast<alerts::UpdateButton>(answer->button)) {
    case alerts::UpdateButton::install:
      return download();
    case alerts::UpdateButton::skip:
      updateSettings::setSkippedVersion(offer_.version);
      break;
    case alerts::UpdateButton::later:
      break;
  }
  end(Outcome::done);
}

void UpdateSession::download() {
  log("downloading version {}", offer_.displayVersion);
  run({.download = DownloadCommand{.prefix = setup_.prefix, .offer = offer_}},
      &UpdateSession::takeDownloaded);
  if (isUserInitiated()) showDownload();
}

void UpdateSession::showDownload() {
  dialog_ = dialogs_.presentAlert(
      alerts::updateDownloading(offer_),
      weakly([](UpdateSession& self, const std::optional<AlertAnswer>& answer) {
        self.dialog_.reset();
        if (answer) self.cancelDownload();  // not being shown is no wish to cancel
      }));
}

void UpdateSession::cancelDownload() {
  log("the download of version {} was cancelled", offer_.displayVersion);
  run_.reset();
  end(Outcome::done);
}

void UpdateSession::showProgress(const UpdateProgress& progress) {
  progress_ = progress;
  const bool isWhole = progress.total > 0 && progress.received >= progress.total;
  if (isWhole || !progressPause_) drawProgress();
}

void UpdateSession::drawProgress() {
  if (!dialog_ || !progress_) return progressPause_.cancel();
  dialog_->showProgress(alerts::downloadProgress(*std::exchange(progress_, std::nullopt)));
  progressPause_ = runtime_.clock.after(
      progressInterval, [&loop = runtime_.mainLoop, draw = weakly([](UpdateSession& self) {
                                                      self.drawProgress();
                                                    })] { loop.async(draw); });
}

void UpdateSession::takeDownloaded(const UpdateReport& report) {
  if (report.progress) return showProgress(*report.progress);
  dialog_.reset();
  if (!report.ready) return fail(report.failed.value_or(""));
  log("version {} is verified and ready to install", offer_.displayVersion);
  relaunchWhenAllowed();
}

void UpdateSession::relaunchWhenAllowed() {
  const auto delegate = delegate_.lock();
  const auto proceed = weakly([](UpdateSession& self) { self.install(); });
  if (delegate && delegate->shouldPostponeRelaunch(item(), proceed)) return;
  install();
}

void UpdateSession::install() {
  if (std::exchange(installing_, true)) return;
  log("installing version {}", offer_.displayVersion);
  run({.install = InstallCommand{.prefix = setup_.prefix, .version = offer_.version}},
      &UpdateSession::takeInstalled);
}

void UpdateSession::takeInstalled(const UpdateReport& report) {
  if (!report.installed) return fail(report.failed.value_or(""));
  log("restarting as version {}", offer_.displayVersion);
  watchRelaunch();
  setup_.relaunch();
}

void UpdateSession::watchRelaunch() {
  // Its output goes where the tray's goes: it may have to become the tray.
  auto child = runtime_.launcher.launch(updaterOptions(setup_.program));
  if (!child) return log("nobody watches the restart: {}", child.error().message);
  const UpdateCommand command{.watch = WatchCommand{.prefix = setup_.prefix,
                                                    .process = ::getpid(),
                                                    .arguments = setup_.arguments,
                                                    .limitSeconds = relaunchLimit.count()}};
  (*child)->write(json::compact(json::encode(command)));
}

void UpdateSession::conclude(const Alert& alert, Outcome outcome) {
  if (!isUserInitiated()) return end(outcome);
  dialog_ = dialogs_.presentAlert(
      alert, weakly([outcome](UpdateSession& self, const std::optional<AlertAnswer>&) {
        self.end(outcome);
      }));
}

void UpdateSession::fail(const std::string& reason) {
  log("update failed: {}", reason);
  conclude(alerts::updateFailed(reason), Outcome::failed);
}

void UpdateSession::end(Outcome outcome) {
  dialog_.reset();
  run_.reset();
  tell([](UpdateDelegate& delegate) { delegate.willFinishUpdateSession(); });
  runtime_.mainLoop.async([outcome, ended = std::exchange(ended_, nullptr)] {
    if (ended) ended(outcome);
  });
}

UpdateItem UpdateSession::item() const {
  return {.displayVersionString = offer_.displayVersion, .versionString = offer_.version};
}

void UpdateSession::tell(const std::function<void(UpdateDelegate&)>& what) const {
  if (const auto delegate = delegate_.lock()) what(*delegate);
}

}  // namespace zephyl
