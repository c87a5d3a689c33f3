#pragma once

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

/// Owns one `TailnetProcess` per server that should be connected, and keeps them in step with the
/// registry. Operations may be called from any thread; a lock guards the table alone and is never
/// held while an instance is called. Callbacks come on the main thread. Owned by a `shared_ptr`.
class TailnetManager : public std::enable_shared_from_this<TailnetManager> {
 public:
  using Instance = std::shared_ptr<TailnetProcess>;
  static constexpr Duration addressNotificationDelay = std::chrono::seconds(1);

  explicit TailnetManager(const Runtime& runtime) : runtime_(runtime) {}

  /// Something that an instance shows has changed.
  std::function<void()> onStateChange;
  std::function<void(ServerEntry server, std::string target)> onTargetUnresolved;
  /// Servers' addresses have changed; one call for all that do within a second.
  std::function<void()> onAddressLearned;

  /// Retires the instances of servers that are gone, disabled or not joined, and starts one for
  /// every other server, in the registry's order. A pair that runs is left alone. Does nothing when
  /// a tailnet program is missing.
  void syncWithStore();

  /// The server's instance, made when there is none. One that exists keeps the entry that it was
  /// made with.
  Instance instance(const ServerEntry& entry);
  /// The server's instance, if there is one.
  [[nodiscard]] Instance find(const std::string& id) const;
  /// Removes the server's instance from the table and stops it. The server's next instance starts
  /// no child before the children of this one have ended.
  void retire(const std::string& id);
  /// Retires the server's instance. `syncWithStore` starts no other one before `resume`.
  void suspend(const std::string& id);
  void resume(const std::string& id);
  /// Calls `then` when the children of all instances that are retired now have ended, later, also
  /// if there are none. Main thread.
  void whenRetired(Task then);
  [[nodiscard]] std::vector<Instance> instances() const;

  /// The instance of the first server that is enabled and joined, if there is one.
  [[nodiscard]] Instance primary() const;
  [[nodiscard]] bool anyRunning() const;
  /// The logs of all, under a heading each when there are several, by display name.
  [[nodiscard]] std::vector<std::string> recentLog() const;

  /// Stops all, retired ones included: sends each child SIGTERM, waits for all of them until one
  /// shared deadline, `terminationGrace` after the last signal, and kills the rest.
  void stopAll();

 private:
  struct Waiter {
    std::vector<Instance> instances;  // whose children have not ended yet
    Task then;
  };

  Instance make(const ServerEntry& entry);
  void stopRetired(const std::vector<Instance>& instances);
  void handleEnd(const Instance& instance);
  void relayStateChange();
  void scheduleAddressLearned();

  const Runtime runtime_;
  mutable std::mutex lock_;
  std::map<std::string, Instance, std::less<>> instances_;
  std::vector<Instance> retired_;  // until their children have ended; the newest comes last
  std::set<std::string, std::less<>> suspended_;
  // Main thread:
  std::vector<Waiter> waiters_;
  bool stateChangePending_ = false;
  Timer addressNotification_;  // set while a learned address waits to be reported
};

}  // namespace zephyl
