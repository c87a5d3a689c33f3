#pragma once

#include <functional>
#include <memory>
#include <utility>

#include "Desktop/StatusItem.hpp"
#include "ZephylTray/Menu/MenuActions.hpp"
#include "ZephylTray/Menu/StatusDescription.hpp"
#include "ZephylTray/Menu/StatusMenu.hpp"

namespace zephyl {

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

  /// `item` must outlive it.
  StatusItemController(StatusItem& item, Port port) : item_(item), port_(std::move(port)) {}

  /// Subscribes to the item's events and shows the state.
  void start();

  void menuNeedsUpdate() { rebuildMenu(); }
  void menuWillOpen() { menuIsOpen_ = true; }
  void menuDidClose() { menuIsOpen_ = false; }

  /// Shows the state. Updates the menu only if it is closed.
  void rebuildMenu();
  /// Shows a state in which the agent's activity has changed, but not the menu.
  void updateProgress();

 private:
  void updateOutsideMenu(const Summary& summary);

  StatusItem& item_;
  const Port port_;
  bool menuIsOpen_ = false;
};

}  // namespace zephyl
