#include "ZephylTray/Agent/AgentMonitor.hpp"

#include <utility>

#include "System/Concurrency/MainLoop.hpp"
#include "System/Concurrency/Weakly.hpp"

namespace zephyl {

namespace {

/// Returns whether two activities result in different menus. The menu does not show the progress of
/// the index, which a busy agent may report a thousand times a second.
bool menuDiffers(const Activity& before, const Activity& now) {
  return before.model != now.model || before.pendingApprovals != now.pendingApprovals ||
         before.escapeGrants != now.escapeGrants;
}

}  // namespace

void AgentMonitor::startPolling() {
  pollTimer_ = mainLoop_.every(clock_, pollInterval,
                               weakly(this, [](AgentMonitor& self) { self.refresh(); }));
}

void AgentMonitor::pollOnce(Task done) {
  port_.poll(weakly(this, [done = std::move(done), events = eventCount_](AgentMonitor& self,
                                                                         Result<AgentPoll> poll) {
    self.apply(std::move(poll), events == self.eventCount_);
    if (done) done();
  }));
}

void AgentMonitor::apply(Result<AgentPoll> poll, bool activityIsCurrent) {
  polled_ = true;
  snapshot_.reachable = poll.has_value();
  if (poll) {
    snapshot_.status = std::move(poll->status);
    snapshot_.roots = std::move(poll->roots);
    if (poll->activity && activityIsCurrent) snapshot_.activity = std::move(poll->activity);
  } else {
    snapshot_ = {};
    port_.forgetPeer();
  }
  report(Update::poll);
}

void AgentMonitor::startActivityStream() {
  events_.reset();
  events_ = port_.followEvents(weakly(
      this, [](AgentMonitor& self, Activity activity) { self.receive(std::move(activity)); }));
}

void AgentMonitor::receive(Activity activity) {
  ++eventCount_;
  const bool differs = !snapshot_.activity || menuDiffers(*snapshot_.activity, activity);
  snapshot_.activity = std::move(activity);
  report(differs ? Update::activity : Update::progress);
}

void AgentMonitor::report(Update update) {
  *busy_ = snapshot_.activity && snapshot_.activity->busy;
  if (onChange) onChange(snapshot_, update);
}

std::function<bool()> AgentMonitor::busyQuery() const {
  return [busy = busy_] { return busy->load(); };
}

}  // namespace zephyl
