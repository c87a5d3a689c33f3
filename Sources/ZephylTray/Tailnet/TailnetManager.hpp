#pragma once

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "System/Concurrency/Runtime.hpp"
#include "ZephylTray/Tailnet/TailnetProcess.hpp"

namespace zephyl {

/// Owns one `TailnetProcess` per server that should be connected, and synchronizes them with the
/// registry. Operations are callable from any thread. A lock protects only the table and is never
/// held during a call of an instance. Callbacks are called on the main thread. Owned by a
/// `shared_ptr`.
class TailnetManager : public std::enable_shared_from_this<TailnetManager> {
 public:
  using Instance = std::shared_ptr<TailnetProcess>;
  static constexpr Duration addressNotificationDelay = std::chrono::seconds(1);
  /// How long instances are started without a pause. A start forks, which takes a millisecond or
  /// more.
  static constexpr Duration startingTime = std::chrono::milliseconds(10);

  explicit TailnetManager(const Runtime& runtime) : runtime_(runtime) {}

  /// Called when the displayed state of an instance has changed.
  std::function<void()> onStateChange;
  std::function<void(ServerEntry server, std::string target)> onTargetUnresolved;
  /// Called when addresses of servers have changed, once for all changes within a second.
  std::function<void()> onAddressLearned;

  /// Retires the instances of servers that were removed, disabled or not joined, and starts one for
  /// every other server, in the registry's order. Running pairs are not touched. Does nothing if a
  /// tailnet program is missing. Returns after `startingTime`. Further tasks of the main loop start
  /// the remaining servers, unless a server is retired before.
  void syncWithStore();

  /// Returns the server's instance, or creates it. An existing instance keeps its original entry.
  Instance instance(const ServerEntry& entry);
  /// Returns the server's instance, or null.
  [[nodiscard]] Instance find(const std::string& id) const;
  /// Removes the server's instance from the table and stops it. The server's next instance starts
  /// no child before the children of this one have ended.
  void retire(const std::string& id);
  /// Retires the server's instance. `syncWithStore` starts no other one until `resume`.
  void suspend(const std::string& id);
  void resume(const std::string& id);
  /// Calls `then` later on the main thread, when the children of all instances that are retired now
  /// have ended. Main thread only.
  void whenRetired(Task then);
  [[nodiscard]] std::vector<Instance> instances() const;

  /// Returns the instance of the first server that is enabled and joined, or null.
  [[nodiscard]] Instance primary() const;
  [[nodiscard]] bool anyRunning() const;
  /// Returns the logs of all instances. If there are several, each has a heading, and they are
  /// sorted by display name.
  [[nodiscard]] std::vector<std::string> recentLog() const;

  /// Stops all instances, including retired ones: sends SIGTERM to each child, waits for all of
  /// them until a shared deadline, `terminationGrace` after the last signal, and kills the rest.
  void stopAll();

 private:
  struct Waiter {
    std::vector<Instance> instances;  // whose children have not ended yet
    Task then;
  };

  Instance make(const ServerEntry& entry);
  void startDue();
  Instance nextDue();
  void stopRetired(const std::vector<Instance>& instances);
  void handleEnd(const Instance& instance);
  void relayStateChange();
  void reportStateChange();
  [[nodiscard]] bool isStarting() const;
  void scheduleAddressLearned();

  const Runtime runtime_;
  mutable std::mutex lock_;
  std::map<std::string, Instance, std::less<>> instances_;
  std::vector<Instance> retired_;  // until their children have ended; newest last
  std::set<std::string, std::less<>> suspended_;
  std::deque<Instance> due_;  // to be started, in this order
  // Main thread only:
  std::vector<Waiter> waiters_;
  bool stateChangePending_ = false;
  Timer addressNotification_;  // set while a new address awaits its report
};

}  // namespace zephyl
