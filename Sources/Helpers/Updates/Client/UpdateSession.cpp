#include "Helpers/Updates/Client/UpdateSession.hpp"

#include <utility>

#include "Helpers/Updates/Client/UpdateAlerts.hpp"
#include "Helpers/Updates/Client/UpdateCommands.hpp"
#include "Helpers/Updates/Client/Updater.hpp"
#include "System/Concurrency/MainLoop.hpp"
#include "System/Concurrency/Weakly.hpp"
#include "System/Files/Log.hpp"

namespace zephyl {

UpdateSession::UpdateSession(const Runtime& runtime, Dialogs& dialogs, const UpdateSetup& setup,
                             std::weak_ptr<UpdateDelegate> delegate, Events events)
    : runtime_(runtime),
      dialogs_(dialogs),
      setup_(setup),
      delegate_(std::move(delegate)),
      events_(std::move(events)) {}

void UpdateSession::start(Trigger trigger) {
  trigger_ = trigger;
  showsWindows_ = isUserInitiated();
  if (isUserInitiated()) activationToken_ = dialogs_.consumeActivationToken();
  run(checkCommand(setup_, isUserInitiated()), &UpdateSession::handleCheck);
}

void UpdateSession::recheck() {
  stage_ = Stage::rechecking;
  run(checkCommand(setup_, isUserInitiated()), &UpdateSession::handleRecheck);
}

void UpdateSession::run(const UpdateCommand& command, Handler handler) {
  updater_ = startUpdater(runtime_.mainLoop, runtime_.launcher, setup_.program, command,
                          weakly(this, [handler](UpdateSession& self, const UpdateReport& report) {
                            const bool isLast = !std::holds_alternative<UpdateProgress>(report);
                            if (isLast) self.updater_.reset();
                            (self.*handler)(report);
                          }));
}

void UpdateSession::bringToFront() {
  if (dialog_) {
    dialog_->bringToFront();
  } else if (downloadWindow_) {
    downloadWindow_->bringToFront();
  }
}

bool UpdateSession::recordCheck(const UpdateReport& report) {
  using std::chrono::seconds;
  const auto date = feedDateOf(report);
  if (date) {
    setup_.settings.rememberFeedDate(Updater::feedAddress(), *date);
    setup_.settings.setLastCheck(std::chrono::floor<seconds>(runtime_.clock.calendarNow()));
  }
  events_.checked(date ? std::nullopt : std::optional(failureOf(report)));
  return date.has_value();
}

void UpdateSession::handleCheck(const UpdateReport& report) {
  if (!recordCheck(report)) return fail(failureOf(report));
  if (const auto* found = std::get_if<UpdateFound>(&report)) return handleFound(*found);
  notify([](UpdateDelegate& delegate) { delegate.didNotFindUpdate(); });
  conclude(alerts::upToDate(Updater::currentVersion()), Outcome::done);
}

void UpdateSession::handleRecheck(const UpdateReport& report) {
  const bool allowed = std::exchange(stage_, Stage::waiting) == Stage::allowed;
  const auto* const found = std::get_if<UpdateFound>(&report);
  if (!recordCheck(report)) {
    log("the check for updates failed while version {} waits: {}", offer_.displayVersion,
        failureOf(report));
  } else if (found == nullptr) {
    log("version {} is no longer offered and will not be installed", offer_.displayVersion);
    notify([](UpdateDelegate& delegate) {
      delegate.didAbandonRelaunch();
      delegate.didNotFindUpdate();
    });
    return end(Outcome::done);
  } else if (found->offer.version != offer_.version || found->offer.sha256 != offer_.sha256) {
    return replace(*found);
  }
  if (allowed) install();
}

/// The user is not asked about a version that replaces one that was accepted.
void UpdateSession::replace(const UpdateFound& found) {
  log("version {} replaces version {}, which waits to be installed", found.offer.displayVersion,
      offer_.displayVersion);
  showsWindows_ = false;
  offer_ = found.offer;
  obstacle_ = found.obstacle;
  notify([&](UpdateDelegate& delegate) {
    delegate.didAbandonRelaunch();
    delegate.didFindValidUpdate(item());
  });
  if (!obstacle_) return download();
  logObstacle();
  end(Outcome::done);
}

void UpdateSession::handleFound(const UpdateFound& found) {
  offer_ = found.offer;
  obstacle_ = found.obstacle;
  log("version {} is available", offer_.displayVersion);
  notify([&](UpdateDelegate& delegate) { delegate.didFindValidUpdate(item()); });
  if (isUserInitiated()) return show();
  remind();
}

void UpdateSession::remind() {
  // A scheduled check never takes the focus.
  const auto delegate = delegate_.lock();
  const bool handled = delegate && (!delegate->supportsGentleScheduledUpdateReminders() ||
                                    delegate->shouldHandleShowingScheduledUpdate(
                                        item(), /*inImmediateFocus=*/false));
  if (handled) return show();
  notify([&](UpdateDelegate& each) { each.willHandleShowingUpdate(false, item(), {}); });
  if (setup_.settings.installsAutomatically() && !obstacle_) return download();
  if (obstacle_) logObstacle();
  end(Outcome::done);
}

void UpdateSession::show() {
  notify([&](UpdateDelegate& delegate) {
    delegate.willHandleShowingUpdate(true, item(), {.userInitiated = isUserInitiated()});
  });
  if (obstacle_) return explainObstacle();
  Alert alert = alerts::updateFound(offer_, Updater::currentVersion());
  alert.requestedByUser = isUserInitiated();
  alert.activationToken = std::exchange(activationToken_, {});
  dialog_ = dialogs_.presentAlert(
      alert, weakly(this, [](UpdateSession& self, const std::optional<AlertAnswer>& answer) {
        self.choose(answer);
      }));
}

void UpdateSession::logObstacle() const {
  log("cannot install version {}: {}", offer_.displayVersion, *obstacle_);
}

void UpdateSession::explainObstacle() {
  notify([&](UpdateDelegate& delegate) { delegate.didReceiveUserAttention(item()); });
  logObstacle();
  conclude(alerts::updateFoundElsewhere(offer_, Updater::currentVersion(), *obstacle_),
           Outcome::done);
}

void UpdateSession::choose(const std::optional<AlertAnswer>& answer) {
  dialog_.reset();
  if (!answer) return end(Outcome::done);  // not shown, so the menu still offers it
  notify([&](UpdateDelegate& delegate) { delegate.didReceiveUserAttention(item()); });
  switch (static_cast<alerts::UpdateButton>(answer->button)) {
    case alerts::UpdateButton::install:
      return download();
    case alerts::UpdateButton::skip:
      setup_.settings.setSkippedVersion(offer_.version);
      break;
    case alerts::UpdateButton::later:
      break;
  }
  end(Outcome::done);
}

void UpdateSession::download() {
  stage_ = Stage::downloading;
  log("downloading version {}", offer_.displayVersion);
  run(DownloadCommand{.prefix = setup_.prefix, .offer = offer_}, &UpdateSession::handleDownload);
  if (showsWindows_) showDownload();
}

void UpdateSession::showDownload() {
  downloadWindow_ = std::make_unique<DownloadWindow>(
      runtime_, dialogs_, offer_,
      weakly(this, [](UpdateSession& self, const std::optional<AlertAnswer>& answer) {
        self.downloadWindow_.reset();
        if (answer) self.cancelDownload();  // no answer means not shown, which does not cancel
      }));
}

void UpdateSession::cancelDownload() {
  log("the download of version {} was cancelled", offer_.displayVersion);
  updater_.reset();
  end(Outcome::done);
}

void UpdateSession::handleDownload(const UpdateReport& report) {
  if (const auto* progress = std::get_if<UpdateProgress>(&report)) {
    if (downloadWindow_) downloadWindow_->showProgress(*progress);
    return;
  }
  downloadWindow_.reset();
  if (!std::holds_alternative<UpdateStaged>(report)) return fail(failureOf(report));
  log("version {} is verified and ready to install", offer_.displayVersion);
  relaunchWhenAllowed();
}

void UpdateSession::relaunchWhenAllowed() {
  stage_ = Stage::waiting;
  const auto delegate = delegate_.lock();
  const auto proceed = weakly(this, [](UpdateSession& self) { self.allowInstallation(); });
  if (delegate && delegate->shouldPostponeRelaunch(item(), proceed)) return;
  install();
}

void UpdateSession::allowInstallation() {
  if (stage_ == Stage::rechecking) stage_ = Stage::allowed;
  if (stage_ == Stage::waiting) install();
  // In any other stage the permission concerns a version that was replaced.
}

void UpdateSession::install() {
  if (std::exchange(stage_, Stage::installing) == Stage::installing) return;
  log("installing version {}", offer_.displayVersion);
  run(InstallCommand{.prefix = setup_.prefix, .version = offer_.version},
      &UpdateSession::handleInstallation);
}

void UpdateSession::handleInstallation(const UpdateReport& report) {
  if (!std::holds_alternative<UpdateInstalled>(report)) return fail(failureOf(report));
  log("restarting as version {}", offer_.displayVersion);
  watchRelaunch(runtime_.launcher, setup_);
  setup_.relaunch();
}

void UpdateSession::conclude(Alert alert, Outcome outcome) {
  if (!showsWindows_) return end(outcome);
  alert.activationToken = std::exchange(activationToken_, {});
  dialog_ = dialogs_.presentAlert(
      alert, weakly(this, [outcome](UpdateSession& self, const std::optional<AlertAnswer>&) {
        self.end(outcome);
      }));
}

void UpdateSession::fail(const std::string& reason) {
  log("update failed: {}", reason);
  conclude(alerts::updateFailed(reason), Outcome::failed);
}

void UpdateSession::end(Outcome outcome) {
  dialog_.reset();
  downloadWindow_.reset();
  updater_.reset();
  notify([](UpdateDelegate& delegate) { delegate.willFinishUpdateSession(); });
  runtime_.mainLoop.async([outcome, ended = std::exchange(events_.ended, nullptr)] {
    if (ended) ended(outcome);
  });
}

UpdateItem UpdateSession::item() const {
  return {.displayVersionString = offer_.displayVersion, .versionString = offer_.version};
}

void UpdateSession::notify(const std::function<void(UpdateDelegate&)>& event) const {
  if (const auto delegate = delegate_.lock()) event(*delegate);
}

}  // namespace zephyl
