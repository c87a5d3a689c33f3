#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "Helpers/Updates/Client/UpdateFramework.hpp"
#include "System/Concurrency/Runtime.hpp"

namespace zephyl {

class Desktop;

/// Updates of the tray itself, through an update framework. Requires a feed and a signing key in
/// the bundle, keeps the found version for the menu, and postpones the restart, without a limit,
/// until the agent is idle.
///
/// Does nothing without a controller, which is missing if updates are not available or this program
/// has no framework. Otherwise it is idle, an update was found (`pendingVersion`), or its
/// installation is postponed (`hasPostponedInstall`).
///
/// Operations must be called on the main thread. The framework's callbacks may be called on any
/// thread: their changes are posted to the main thread, and a lock protects the postponed
/// installation. Owned by a `shared_ptr`. Tasks and the framework hold it weakly.
class Updater final : public UpdateDelegate, public std::enable_shared_from_this<Updater> {
 public:
  /// The objects that `runtime` refers to, and `desktop`, must outlive it.
  Updater(const Runtime& runtime, Desktop& desktop, UpdaterFactory factory = nullptr)
      : runtime_(runtime), desktop_(desktop), factory_(std::move(factory)) {}

  // Must be set before `start`:
  /// Called on the main thread when the displayed state may have changed.
  std::function<void()> onStateChange;
  /// Returns whether the agent is busy. Must be callable from any thread, because the framework's
  /// thread calls it. If unset, the agent is never busy.
  std::function<bool()> isAgentBusy;

  /// Returns whether the bundle names a feed and at least one key to verify it.
  [[nodiscard]] static bool isAvailable();
  /// Returns the address of the feed in the bundle, or an empty string.
  [[nodiscard]] static std::string feedAddress();
  /// Returns the bundle's version, `ZEPHYL_TRAY_VERSION`, or "unknown".
  [[nodiscard]] static std::string currentVersion();

  /// Starts the framework if updates are available.
  void start();
  /// Checks for updates on request of the user.
  void checkForUpdates();
  /// Handles the agent's activity. A postponed installation proceeds when the agent is idle.
  void agentDidUpdateActivity(bool busy);

  [[nodiscard]] bool canCheckForUpdates() const;
  /// Returns the version, for display, of an update that was found and not handled yet.
  [[nodiscard]] const std::optional<std::string>& pendingVersion() const { return pendingVersion_; }
  [[nodiscard]] bool hasPostponedInstall() const;

  void didFindValidUpdate(const UpdateItem& item) override;
  void didNotFindUpdate() override;
  bool shouldPostponeRelaunch(const UpdateItem& item, Task proceed) override;
  bool supportsGentleScheduledUpdateReminders() override { return true; }
  bool shouldHandleShowingScheduledUpdate(const UpdateItem& item, bool inImmediateFocus) override;
  void willHandleShowingUpdate(bool handled, const UpdateItem& item,
                               const UpdateState& state) override;
  void didReceiveUserAttention(const UpdateItem& item) override;
  void willFinishUpdateSession() override;
  void didAbandonRelaunch() override;

 private:
  /// Runs `work` later on the main thread, unless the updater was destroyed by then.
  void onMainThread(std::function<void(Updater&)> work);
  /// Sets the pending version and reports the change, later, on the main thread.
  void changePendingVersion(std::optional<std::string> version);
  void reportStateChange();
  [[nodiscard]] bool agentIsBusy() const;
  bool installPostponed();

  const Runtime runtime_;
  Desktop& desktop_;
  const UpdaterFactory factory_;

  std::optional<std::string> pendingVersion_;
  mutable std::mutex mutex_;
  Task postponedInstall_;  // guarded by mutex_
  std::unique_ptr<UpdaterController> controller_;
  std::unique_ptr<UpdaterController::Observation> canCheckObservation_;
};

}  // namespace zephyl
