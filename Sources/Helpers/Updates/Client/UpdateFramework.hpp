#pragma once

#include <functional>
#include <memory>
#include <string>

#include "System/Concurrency/Clock.hpp"

/// The interfaces between the updater and a framework that checks a feed for updates, shows them to
/// the user and installs them.
namespace zephyl {

/// An update that the feed offers.
struct UpdateItem {
  std::string displayVersionString;  ///< for display
  std::string versionString;         ///< for comparison
};

/// The reason why an update is shown.
struct UpdateState {
  bool userInitiated = false;  ///< whether the user requested the check
};

/// The framework's events and queries. Called on any thread.
class UpdateDelegate {
 public:
  virtual ~UpdateDelegate() = default;
  UpdateDelegate() = default;
  UpdateDelegate(const UpdateDelegate&) = delete;
  UpdateDelegate& operator=(const UpdateDelegate&) = delete;

  virtual void didFindValidUpdate(const UpdateItem& item) = 0;
  virtual void didNotFindUpdate() = 0;
  /// Called when everything is ready to relaunch into the update. If it returns true, the relaunch
  /// is postponed until `proceed` is called, once, on the main thread, possibly before this has
  /// returned.
  virtual bool shouldPostponeRelaunch(const UpdateItem& item, Task proceed) = 0;
  /// Called when a postponed relaunch will not happen, because its update was withdrawn
  /// or is replaced by a newer one.
  virtual void didAbandonRelaunch() = 0;

  /// Returns whether the delegate itself reminds the user of updates from scheduled checks.
  virtual bool supportsGentleScheduledUpdateReminders() = 0;
  /// Returns whether the framework shows an update from a scheduled check. `inImmediateFocus` is
  /// true if it would do so at once, in front of the user.
  virtual bool shouldHandleShowingScheduledUpdate(const UpdateItem& item,
                                                  bool inImmediateFocus) = 0;
  /// Called before an update is shown. If `handled` is false, the delegate must show it.
  virtual void willHandleShowingUpdate(bool handled, const UpdateItem& item,
                                       const UpdateState& state) = 0;
  virtual void didReceiveUserAttention(const UpdateItem& item) = 0;
  virtual void willFinishUpdateSession() = 0;
};

/// A running framework. Must be called on the main thread. Stops when it is destroyed. Holds its
/// delegate weakly.
class UpdaterController {
 public:
  /// An observation that ends when it is destroyed. Must be destroyed before the controller.
  class Observation {
   public:
    virtual ~Observation() = default;
    Observation() = default;
    Observation(const Observation&) = delete;
    Observation& operator=(const Observation&) = delete;
  };

  virtual ~UpdaterController() = default;
  UpdaterController() = default;
  UpdaterController(const UpdaterController&) = delete;
  UpdaterController& operator=(const UpdaterController&) = delete;

  /// Returns false while a check or an installation is in progress.
  [[nodiscard]] virtual bool canCheckForUpdates() const = 0;
  /// Calls `changed` with each new value of `canCheckForUpdates`, on any thread.
  [[nodiscard]] virtual std::unique_ptr<Observation> observeCanCheckForUpdates(
      std::function<void(bool)> changed) = 0;
  /// Checks on request of the user and shows the result in front of other windows.
  virtual void checkForUpdates() = 0;
};

/// Creates and starts a controller.
using UpdaterFactory =
    std::function<std::unique_ptr<UpdaterController>(std::weak_ptr<UpdateDelegate> delegate)>;

}  // namespace zephyl
