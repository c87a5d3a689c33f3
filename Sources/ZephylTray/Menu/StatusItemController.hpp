#pragma once

#include <functional>
#include <memory>
#include <utility>

#include "Desktop/StatusItem.hpp"
#include "System/Concurrency/Clock.hpp"
#include "ZephylTray/Menu/MenuActions.hpp"
#include "ZephylTray/Menu/StatusDescription.hpp"
#include "ZephylTray/Menu/StatusMenu.hpp"

namespace zephyl {

class MainLoop;

/// Shows the tray's state in the status item and forwards the user's choices. Each change sets
/// icon, title, description and menu at most once. While the menu is open it is not changed, unlike
/// the other parts.
///
/// Main thread only. Owned by a `shared_ptr`. The item holds it weakly.
class StatusItemController : public std::enable_shared_from_this<StatusItemController> {
 public:
  /// The state that is shown outside the menu, at one moment.
  struct Summary {
    const AgentSnapshot& agent;
    bool known = false;  ///< whether a poll has ended; until then no description is set
    TailnetSummary tailnets;
  };
  struct Port {
    std::function<Summary()> summary;
    std::function<StatusMenuState()> menu;
    std::function<void(const TrayAction&)> perform;
  };

  /// The maximum number of events of the agent's stream that are shown at once within
  /// `eventWindow`. Further events are shown together at the end of the window.
  static constexpr int maxEventsShown = 5;
  static constexpr Duration eventWindow = std::chrono::milliseconds(250);

  /// `mainLoop`, `clock` and `item` must outlive it.
  StatusItemController(MainLoop& mainLoop, Clock& clock, StatusItem& item, Port port)
      : mainLoop_(mainLoop), clock_(clock), item_(item), port_(std::move(port)) {}

  /// Subscribes to the item's events and shows the state.
  void start();

  void menuNeedsUpdate() { rebuildMenu(); }
  void menuWillOpen() { menuIsOpen_ = true; }
  void menuDidClose() { menuIsOpen_ = false; }

  /// Shows the state. Updates the menu only if it is closed.
  void rebuildMenu();
  /// Shows the state after an event of the agent's stream, in the menu too if `menuDiffers`.
  void showEvent(bool menuDiffers);

 private:
  void showEvents();
  void updateOutsideMenu(const Summary& summary);

  MainLoop& mainLoop_;
  Clock& clock_;
  StatusItem& item_;
  const Port port_;
  bool menuIsOpen_ = false;
  bool menuOutdated_ = false;  ///< by events that have not been shown yet
  Instant windowEnd_{};
  int eventsShown_ = 0;  ///< within the window
  Timer laterEvents_;
};

}  // namespace zephyl
