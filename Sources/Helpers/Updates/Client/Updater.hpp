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

/// Updates of the tray itself, through an update framework. Adds to it: no updates without a feed
/// and a signing key in the bundle, an account of what was found for the menu, and a restart that
/// waits, without limit, until the agent is idle.
///
/// Without a controller (no update can be had, or this program was made without a framework) it
/// does nothing. With one it is idle; or an update was found (`pendingVersion`); or its
/// installation is postponed (`hasPostponedInstall`).
///
/// Operations belong to the main thread, but the framework's callbacks may come on any: what they
/// change moves to the main thread as a task, and the postponed installation has a lock. Owned by
/// a `shared_ptr`; tasks and the framework hold it weakly.
class Updater final : public UpdateDelegate, public std::enable_shared_from_this<Updater> {
 public:
  /// What `runtime` refers to, and `desktop`, outlive it.
  Updater(const Runtime& runtime, Desktop& desktop, UpdaterFactory factory = nullptr)
      : runtime_(runtime), desktop_(desktop), factory_(std::move(factory)) {}

  // Both are set before `start`.
  /// Something that the menu shows may have changed. Comes on the main thread.
  std::function<void()> onStateChange;
  /// Whether the agent is busy now. Asked on the thread on which the framework asks, so it must be
  /// callable from any. Unset: never.
  std::function<bool()> isAgentBusy;

  /// Whether the bundle names a feed and a key to check it with, or several in a list.
  [[nodiscard]] static bool isAvailable();
  /// The address of the feed that the bundle names; otherwise an empty string.
  [[nodiscard]] static std::string feedAddress();
  /// The bundle's version, `ZEPHYL_TRAY_VERSION`, or "unknown".
  [[nodiscard]] static std::string currentVersion();

  /// Starts the framework, where updates are available.
  void start();
  /// The user asks for updates.
  void checkForUpdates();
  /// The agent has reported its activity. An installation that waits for it proceeds when it is
  /// idle.
  void agentDidUpdateActivity(bool busy);

  [[nodiscard]] bool canCheckForUpdates() const;
  /// The update that was found and not yet dealt with, as people read it.
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
  /// Runs `work` on the main thread, later, unless the updater is gone by then.
  void onMainThread(std::function<void(Updater&)> work);
  /// Sets what is pending and reports the change, on the main thread, later.
  void changePendingVersion(std::optional<std::string> version);
  void reportStateChange();
  [[nodiscard]] bool agentIsBusy() const;
  bool installPostponed();

  const Runtime runtime_;
  Desktop& desktop_;
  const UpdaterFactory factory_;

  std::optional<std::string> pendingVersion_;
  mutable std::mutex mutex_;
  Task postponedInstall_;  // guarded by it
  std::unique_ptr<UpdaterController> controller_;
  std::unique_ptr<UpdaterController::Observation> canCheckObservation_;
};

}  // namespace zephyl
