#pragma once

#include <functional>
#include <memory>
#include <string>

#include "System/Concurrency/Clock.hpp"

/// What the updater asks of a framework that checks a feed for updates, shows them to the user and
/// installs them, and what that framework asks back.
namespace zephyl {

/// An update that the feed offers.
struct UpdateItem {
  std::string displayVersionString;  ///< as people read it
  std::string versionString;         ///< as versions are compared
};

/// How an update came to be shown.
struct UpdateState {
  bool userInitiated = false;  ///< the user asked for the check; otherwise it was due
};

/// Events and questions of the framework. Called on any thread.
class UpdateDelegate {
 public:
  virtual ~UpdateDelegate() = default;
  UpdateDelegate() = default;
  UpdateDelegate(const UpdateDelegate&) = delete;
  UpdateDelegate& operator=(const UpdateDelegate&) = delete;

  virtual void didFindValidUpdate(const UpdateItem& item) = 0;
  virtual void didNotFindUpdate() = 0;
  /// Asked when everything stands ready to relaunch into the update. True: not now, but as soon
  /// as `proceed` is invoked, once, on the main thread, possibly before this has returned.
  virtual bool shouldPostponeRelaunch(const UpdateItem& item, Task proceed) = 0;
  /// The relaunch that was postponed will not happen, because its update was withdrawn.
  virtual void didAbandonRelaunch() = 0;

  /// Whether the delegate itself reminds the user of updates found by a scheduled check.
  virtual bool supportsGentleScheduledUpdateReminders() = 0;
  /// Whether the framework shows an update found by a scheduled check. `inImmediateFocus`: it
  /// would do so in front of the user, now.
  virtual bool shouldHandleShowingScheduledUpdate(const UpdateItem& item,
                                                  bool inImmediateFocus) = 0;
  /// `handled`: the framework shows it; otherwise that is left to the delegate.
  virtual void willHandleShowingUpdate(bool handled, const UpdateItem& item,
                                       const UpdateState& state) = 0;
  virtual void didReceiveUserAttention(const UpdateItem& item) = 0;
  virtual void willFinishUpdateSession() = 0;
};

/// A framework that has been started. Its operations are called on the main thread; it ends when
/// it is destroyed. It holds its delegate weakly.
class UpdaterController {
 public:
  /// Ends when it is destroyed, which is before the controller is.
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

  /// False while a check or an installation is under way.
  [[nodiscard]] virtual bool canCheckForUpdates() const = 0;
  /// Calls `changed` with each new value of `canCheckForUpdates`, on any thread.
  [[nodiscard]] virtual std::unique_ptr<Observation> observeCanCheckForUpdates(
      std::function<void(bool)> changed) = 0;
  /// Checks because the user asked, and shows the result in front of everything else.
  virtual void checkForUpdates() = 0;
};

/// Makes a controller and starts it.
using UpdaterFactory =
    std::function<std::unique_ptr<UpdaterController>(std::weak_ptr<UpdateDelegate> delegate)>;

}  // namespace zephyl
