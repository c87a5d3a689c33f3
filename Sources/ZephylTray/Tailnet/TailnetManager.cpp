#include "ZephylTray/Tailnet/TailnetManager.hpp"

#include <algorithm>

#include "System/Concurrency/MainLoop.hpp"
#include "System/Concurrency/Weakly.hpp"
#include "System/Data/Format.hpp"
#include "ZephylTray/Config/Config.hpp"
#include "ZephylTray/Registry/Servers.hpp"

namespace zephyl {

namespace {

/// Returns the enabled and joined servers in the registry's order.
std::vector<ServerEntry> wantedServers() {
  std::vector<ServerEntry> wanted;
  for (auto& entry : Servers::enabled()) {
    if (entry.isJoined()) wanted.push_back(std::move(entry));
  }
  return wanted;
}

}  // namespace

void TailnetManager::syncWithStore() {
  if (!Config::tailnetProgramsInstalled()) return;
  auto wanted = wantedServers();
  std::vector<Instance> removed;
  {
    const std::scoped_lock lock(lock_);
    std::erase_if(wanted, [this](const auto& entry) { return suspended_.contains(entry.id); });
    std::erase_if(instances_, [&](const auto& known) {
      if (std::ranges::find(wanted, known.first, &ServerEntry::id) != wanted.end()) return false;
      removed.push_back(known.second);
      return true;
    });
    retired_.insert(retired_.end(), removed.begin(), removed.end());
  }
  stopRetired(removed);
  std::deque<Instance> due;
  for (const auto& entry : wanted) due.push_back(instance(entry));
  {
    const std::scoped_lock lock(lock_);
    due_ = std::move(due);
  }
  startDue();
}

/// Starts servers for up to `startingTime` and posts a task for the others, so that hundreds of
/// servers do not block the main thread.
void TailnetManager::startDue() {
  const Instant pause = runtime_.clock.now() + startingTime;
  while (const auto instance = nextDue()) {
    instance->start();
    if (runtime_.clock.now() < pause) continue;
    return runtime_.mainLoop.async(weakly(this, [](TailnetManager& self) { self.startDue(); }));
  }
  runtime_.mainLoop.async(weakly(this, [](TailnetManager& self) { self.reportStateChange(); }));
}

/// Returns the next instance to start, null if there is none. Skips those that are retired.
TailnetManager::Instance TailnetManager::nextDue() {
  const std::scoped_lock lock(lock_);
  while (!due_.empty()) {
    Instance next = std::move(due_.front());
    due_.pop_front();
    const auto known = instances_.find(next->server().id);
    if (known != instances_.end() && known->second == next) return next;
  }
  return nullptr;
}

TailnetManager::Instance TailnetManager::instance(const ServerEntry& entry) {
  const std::scoped_lock lock(lock_);
  Instance& instance = instances_[entry.id];
  if (!instance) instance = make(entry);
  return instance;
}

TailnetManager::Instance TailnetManager::find(const std::string& id) const {
  const std::scoped_lock lock(lock_);
  const auto known = instances_.find(id);
  return known == instances_.end() ? nullptr : known->second;
}

void TailnetManager::retire(const std::string& id) {
  std::vector<Instance> removed;
  {
    const std::scoped_lock lock(lock_);
    const auto known = instances_.extract(id);
    if (!known) return;
    removed.push_back(known.mapped());
    retired_.push_back(known.mapped());
  }
  stopRetired(removed);
}

void TailnetManager::suspend(const std::string& id) {
  {
    const std::scoped_lock lock(lock_);
    suspended_.insert(id);
  }
  retire(id);
}

void TailnetManager::resume(const std::string& id) {
  const std::scoped_lock lock(lock_);
  suspended_.erase(id);
}

void TailnetManager::whenRetired(Task then) {
  std::vector<Instance> open;
  {
    const std::scoped_lock lock(lock_);
    open = retired_;
  }
  if (open.empty()) return runtime_.mainLoop.async(std::move(then));
  waiters_.push_back({std::move(open), std::move(then)});
}

/// Signals all instances before it waits for any.
void TailnetManager::stopRetired(const std::vector<Instance>& instances) {
  for (const auto& instance : instances) instance->requestStop();
  for (const auto& instance : instances) {
    instance->stop(weakly(this, [ended = std::weak_ptr(instance)](TailnetManager& self) {
      if (const auto retired = ended.lock()) self.handleEnd(retired);
    }));
  }
}

void TailnetManager::handleEnd(const Instance& instance) {
  {
    const std::scoped_lock lock(lock_);
    std::erase(retired_, instance);
  }
  std::vector<Task> due;
  for (auto& waiter : waiters_) {
    std::erase(waiter.instances, instance);
    if (waiter.instances.empty()) due.push_back(std::move(waiter.then));
  }
  std::erase_if(waiters_, [](const Waiter& waiter) { return waiter.instances.empty(); });
  for (const auto& task : due) task();
}

std::vector<TailnetManager::Instance> TailnetManager::instances() const {
  const std::scoped_lock lock(lock_);
  std::vector<Instance> all;
  all.reserve(instances_.size());
  for (const auto& [id, instance] : instances_) all.push_back(instance);
  return all;
}

TailnetManager::Instance TailnetManager::primary() const {
  const auto wanted = wantedServers();
  return wanted.empty() ? nullptr : find(wanted.front().id);
}

bool TailnetManager::anyRunning() const {
  return std::ranges::any_of(instances(), [](const auto& each) { return each->isRunning(); });
}

std::vector<std::string> TailnetManager::recentLog() const {
  auto all = instances();
  if (all.size() == 1) return all.front()->recentLog();
  std::ranges::stable_sort(all, {}, [](const auto& each) { return each->server().displayName(); });
  std::vector<std::string> merged;
  for (const auto& each : all) {
    auto lines = each->recentLog();
    if (lines.empty()) continue;
    merged.push_back(formatText("=== {} ===", each->server().displayName()));
    std::ranges::move(lines, std::back_inserter(merged));
  }
  return merged;
}

void TailnetManager::stopAll() {
  auto all = instances();
  {
    const std::scoped_lock lock(lock_);
    due_.clear();
    all.insert(all.end(), retired_.begin(), retired_.end());
  }
  for (const auto& instance : all) instance->requestStop();
  const Instant deadline = runtime_.clock.now() + TailnetProcess::terminationGrace;
  for (const auto& instance : all) instance->finishStop(deadline);
}

TailnetManager::Instance TailnetManager::make(const ServerEntry& entry) {
  const auto predecessor =
      std::ranges::find(retired_.rbegin(), retired_.rend(), entry.id,
                        [](const Instance& retired) { return retired->server().id; });
  auto made = std::make_shared<TailnetProcess>(
      runtime_, entry, predecessor == retired_.rend() ? nullptr : *predecessor);
  made->onStateChange = weakly(this, [](TailnetManager& self) { self.relayStateChange(); });
  made->onAddressLearned =
      weakly(this, [](TailnetManager& self) { self.scheduleAddressLearned(); });
  made->onTargetUnresolved =
      weakly(this, [server = entry](TailnetManager& self, const std::string& target) {
        if (self.onTargetUnresolved) self.onTargetUnresolved(server, target);
      });
  return made;
}

/// Combines changes in quick succession, as when fifty tailnets start.
void TailnetManager::relayStateChange() {
  if (std::exchange(stateChangePending_, true)) return;
  runtime_.mainLoop.async(weakly(this, [](TailnetManager& self) { self.reportStateChange(); }));
}

/// Waits for the last of the instances that are being started.
void TailnetManager::reportStateChange() {
  if (!stateChangePending_ || isStarting()) return;
  stateChangePending_ = false;
  if (onStateChange) onStateChange();
}

bool TailnetManager::isStarting() const {
  const std::scoped_lock lock(lock_);
  return !due_.empty();
}

void TailnetManager::scheduleAddressLearned() {
  if (addressNotification_) return;
  addressNotification_ = runtime_.mainLoop.after(runtime_.clock, addressNotificationDelay, [this] {
    addressNotification_.cancel();
    if (onAddressLearned) onAddressLearned();
  });
}

}  // namespace zephyl
