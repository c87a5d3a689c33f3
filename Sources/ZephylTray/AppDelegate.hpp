#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Desktop/Desktop.hpp"
#include "System/Clock.hpp"
#include "ZephylTray/ActivityStream.hpp"
#include "ZephylTray/AgentClient.hpp"
#include "ZephylTray/AgentProcess.hpp"
#include "ZephylTray/Runtime.hpp"
#include "ZephylTray/StatusDescription.hpp"
#include "ZephylTray/TailnetManager.hpp"

namespace zephyl {

/// The tray controller: owns every long-lived component, starts them in a fixed order, keeps the
/// agent's state fresh by polling and by following its event stream, and stops the children when
/// the program ends. It holds no logic of theirs.
///
/// Main thread only. Created by `main` and held by it for the life of the process; every closure
/// given to a component holds it weakly and does nothing once it is gone.
///
/// The agent's state: unreachable at first (`status` and `activity` none, `roots` empty);
/// reachable by a poll in which status and roots both succeed; unreachable again by the first
/// poll in which either fails. A poll never starts or restarts the agent: the tray launches one
/// only when nothing answered its first poll.
class AppDelegate : public std::enable_shared_from_this<AppDelegate> {
 public:
  static constexpr Duration pollInterval = std::chrono::seconds(2);

  /// What `runtime` refers to, and `desktop`, outlive it.
  AppDelegate(const Runtime& runtime, Desktop& desktop);

  /// Starts everything, in order. Returns at once; what takes time goes on in tasks.
  void applicationDidFinishLaunching();
  /// Stops everything, in order, and waits for the children: a few seconds at most.
  void applicationWillTerminate();

  /// Polls the agent, then brings what is shown up to date.
  void refresh();
  /// Joins a server with the invite key that the user pasted: registers the server, starts its
  /// tailnet in enrolment mode and restarts the agent. Returns what to tell the user when the key
  /// cannot be read, and changes nothing then. Whether the server accepts the key shows later, in
  /// its tailnet's state.
  std::optional<std::string> redeem(const std::string& key);
  /// Follows the agent's event stream, afresh when it is being followed already.
  void startActivityStream();

  [[nodiscard]] const AgentView& agentView() const { return agentView_; }

 private:
  /// What one successful poll brought. `activity` is none when only that request failed.
  struct Poll {
    AgentStatus status;
    std::vector<SharedRoot> roots;
    std::optional<Activity> activity;
  };

  // Start-up and shutdown (AppDelegate.cpp)
  void wireAgent();
  void wireTailnets();
  void launchAgentUnlessOneAnswers();

  // Following the agent (AppDelegatePolling.cpp)
  void pollOnce(Task done);
  void apply(std::optional<Poll> poll);
  void receive(Activity activity);
  void updateIcon();
  void updateButtonTitle();
  void updateDescription();
  [[nodiscard]] TailnetSummary tailnetSummary() const;

  /// Wraps work so that it runs only while the controller exists.
  template <typename Work>
  auto weakly(Work work) {
    return [weak = weak_from_this(), work = std::move(work)](auto&&... values) {
      if (const auto self = weak.lock()) work(*self, std::forward<decltype(values)>(values)...);
    };
  }

  Runtime runtime_;
  Desktop& desktop_;
  StatusItem* statusItem_ = nullptr;
  AgentClient client_;
  std::shared_ptr<AgentProcess> agent_;
  std::shared_ptr<TailnetManager> tailnet_;
  Timer pollTimer_;
  AgentView agentView_;
  std::optional<ActivityStream> sseTask_;
};

}  // namespace zephyl
