#pragma once

#include <functional>
#include <memory>
#include <utility>

#include "Desktop/StatusItem.hpp"
#include "ZephylTray/Menu/MenuActions.hpp"
#include "ZephylTray/Menu/StatusDescription.hpp"
#include "ZephylTray/Menu/StatusMenu.hpp"

namespace zephyl {

/// Shows the tray's state in the status item, and passes on what the user chooses there. Each
/// change sets icon, title, description and menu at most once. The menu stays as it is while the
/// menu is open; the rest does not.
///
/// Main thread only. Owned by a `shared_ptr`; the item holds it weakly.
class StatusItemController : public std::enable_shared_from_this<StatusItemController> {
 public:
  /// What is shown outside the menu, as it is at one moment.
  struct Summary {
    const AgentSnapshot& agent;
    bool known = false;  ///< whether the agent has been asked; until then there is no description
    TailnetSummary tailnets;
  };
  struct Port {
    std::function<Summary()> summary;
    std::function<StatusMenuState()> menu;
    std::function<void(const TrayAction&)> perform;
  };

  /// `item` outlives it.
  StatusItemController(StatusItem& item, Port port) : item_(item), port_(std::move(port)) {}

  /// Receives the item's events from now on, and shows the state.
  void start();

  void menuNeedsUpdate() { rebuildMenu(); }
  void menuWillOpen() { menuIsOpen_ = true; }
  void menuDidClose() { menuIsOpen_ = false; }

  /// Shows the state, in the menu too unless that is open.
  void rebuildMenu();
  /// Shows a state that differs in what the agent does, but not in the menu.
  void updateProgress();

 private:
  void updateOutsideMenu(const Summary& summary);

  StatusItem& item_;
  const Port port_;
  bool menuIsOpen_ = false;
};

}  // namespace zephyl
