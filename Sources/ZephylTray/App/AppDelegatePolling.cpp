#include "System/Concurrency/MainLoop.hpp"
#include "ZephylTray/App/AppDelegate.hpp"

namespace zephyl {

namespace {

/// Whether two activities make different menus; how far the index is stands elsewhere, and an
/// agent that works may tell of it a thousand times a second.
bool menuDiffers(const Activity& before, const Activity& now) {
  return before.model != now.model || before.pendingApprovals != now.pendingApprovals ||
         before.escapeGrants != now.escapeGrants;
}

}  // namespace

void AppDelegate::refresh() {
  pollOnce(weakly([](AppDelegate& self) { self.rebuildMenu(); }));
}

/// Three requests, one after the other, off the main thread; what they brought is applied whole
/// on the main thread, and then `done` runs there.
void AppDelegate::pollOnce(Task done) {
  const auto finish = weakly([done = std::move(done)](AppDelegate& self, std::optional<Poll> poll) {
    self.apply(std::move(poll));
    done();
  });
  client_.getStatus([client = client_, finish](Result<AgentStatus> status) {
    if (!status) return finish(std::nullopt);
    client.getRoots([client, finish, status = *status](Result<std::vector<SharedRoot>> roots) {
      if (!roots) return finish(std::nullopt);
      client.getActivity([finish, status, roots = *roots](Result<Activity> activity) {
        finish(Poll{status, roots, activity ? std::optional(*activity) : std::nullopt});
      });
    });
  });
}

void AppDelegate::apply(std::optional<Poll> poll) {
  polled_ = true;
  agentView_.reachable = poll.has_value();
  if (poll) {
    agentView_.status = std::move(poll->status);
    agentView_.roots = std::move(poll->roots);
    if (poll->activity) agentView_.activity = std::move(poll->activity);
  } else {
    agentView_ = {};
    agentPeer_->forget();
  }
  noteBusy();
  updateButtonTitle();
  updateIcon();
}

void AppDelegate::startActivityStream() {
  sseTask_.emplace(
      runtime_, client_.base() + "/api/events", agentPeer_,
      weakly([](AppDelegate& self, Activity activity) { self.receive(std::move(activity)); }));
}

void AppDelegate::receive(Activity activity) {
  const bool menuChanges = !agentView_.activity || menuDiffers(*agentView_.activity, activity);
  agentView_.activity = std::move(activity);
  noteBusy();
  processPendingApprovals(std::vector(agentView_.activity->pendingApprovals));
  updater_->agentDidUpdateActivity(*agentIsBusy_);
  updateIcon();
  if (menuChanges) {
    rebuildMenu();
  } else {
    updateDescription();
  }
}

void AppDelegate::noteBusy() {
  *agentIsBusy_ = agentView_.activity && agentView_.activity->busy;
}

}  // namespace zephyl
