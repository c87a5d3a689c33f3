#include "Helpers/Updates/Client/Updater.hpp"

#include <utility>

#include "Desktop/Desktop.hpp"
#include "System/Concurrency/MainLoop.hpp"
#include "System/Concurrency/Weakly.hpp"
#include "System/Files/Bundle.hpp"
#include "System/Files/Environment.hpp"

namespace zephyl {

namespace {

std::string notificationIdentifier(const UpdateItem& item) {
  return "zephyl-tray-update-" + item.versionString;
}

}  // namespace

bool Updater::isAvailable() {
  return !feedAddress().empty() && !Bundle::main().informationList("SUPublicEDKey").empty();
}

std::string Updater::feedAddress() {
  return Bundle::main().information("SUFeedURL").value_or("");
}

std::string Updater::currentVersion() {
  if (auto version = Bundle::main().information("CFBundleShortVersionString")) return *version;
  const std::string version = environmentVariable("ZEPHYL_TRAY_VERSION").value_or("");
  return version.empty() ? "unknown" : version;
}

void Updater::start() {
  if (controller_ || !factory_ || !isAvailable()) return;
  controller_ = factory_(weak_from_this());
  if (!controller_) return;
  canCheckObservation_ = controller_->observeCanCheckForUpdates(
      weakly(this, [](Updater& self, bool) { self.reportStateChange(); }));
}

void Updater::checkForUpdates() {
  if (!controller_) return;
  pendingVersion_.reset();
  controller_->checkForUpdates();
}

void Updater::agentDidUpdateActivity(bool busy) {
  if (!busy && installPostponed()) reportStateChange();
}

bool Updater::canCheckForUpdates() const {
  return controller_ && controller_->canCheckForUpdates();
}

bool Updater::hasPostponedInstall() const {
  const std::scoped_lock lock(mutex_);
  return postponedInstall_ != nullptr;
}

void Updater::didFindValidUpdate(const UpdateItem& item) {
  changePendingVersion(item.displayVersionString);
}

void Updater::didNotFindUpdate() {
  changePendingVersion(std::nullopt);
}

bool Updater::shouldPostponeRelaunch(const UpdateItem&, Task proceed) {
  if (!agentIsBusy()) return false;
  {
    const std::scoped_lock lock(mutex_);
    postponedInstall_.swap(proceed);
  }
  onMainThread([](Updater& self) {
    // The agent may have reported that it is idle before the installation was postponed.
    if (!self.agentIsBusy()) self.installPostponed();
    if (self.onStateChange) self.onStateChange();
  });
  return true;
}

bool Updater::shouldHandleShowingScheduledUpdate(const UpdateItem&, bool inImmediateFocus) {
  return inImmediateFocus;
}

void Updater::willHandleShowingUpdate(bool, const UpdateItem& item, const UpdateState& state) {
  if (state.userInitiated) return;
  onMainThread([item](Updater& self) {
    self.desktop_.postNotification(
        {.identifier = notificationIdentifier(item),
         .title = "Zephyl update available",
         .body = "Version " + item.displayVersionString + " is ready to install.",
         .actionTitle = ""});
  });
}

void Updater::didReceiveUserAttention(const UpdateItem& item) {
  onMainThread([identifier = notificationIdentifier(item)](Updater& self) {
    self.desktop_.removeNotification(identifier);
  });
  changePendingVersion(std::nullopt);
}

void Updater::willFinishUpdateSession() {
  reportStateChange();
}

void Updater::didAbandonRelaunch() {
  Task dropped;  // destroyed without the lock
  {
    const std::scoped_lock lock(mutex_);
    dropped.swap(postponedInstall_);
  }
  reportStateChange();
}

void Updater::onMainThread(std::function<void(Updater&)> work) {
  runtime_.mainLoop.async(weakly(this, std::move(work)));
}

void Updater::changePendingVersion(std::optional<std::string> version) {
  onMainThread([version = std::move(version)](Updater& self) {
    self.pendingVersion_ = version;
    if (self.onStateChange) self.onStateChange();
  });
}

void Updater::reportStateChange() {
  onMainThread([](Updater& self) {
    if (self.onStateChange) self.onStateChange();
  });
}

bool Updater::agentIsBusy() const {
  return isAgentBusy && isAgentBusy();
}

/// Proceeds with the postponed installation. Returns whether there was one.
bool Updater::installPostponed() {
  Task install;
  {
    const std::scoped_lock lock(mutex_);
    install.swap(postponedInstall_);
  }
  if (!install) return false;
  install();
  return true;
}

}  // namespace zephyl
