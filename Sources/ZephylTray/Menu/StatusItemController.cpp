#include "ZephylTray/Menu/StatusItemController.hpp"

#include "System/Concurrency/Weakly.hpp"

namespace zephyl {

void StatusItemController::start() {
  using Self = StatusItemController;
  item_.setMenuEvents({
      .needsUpdate = weakly(this, [](Self& self) { self.menuNeedsUpdate(); }),
      .willOpen = weakly(this, [](Self& self) { self.menuWillOpen(); }),
      .didClose = weakly(this, [](Self& self) { self.menuDidClose(); }),
      .chosen = weakly(this,
                       [](Self& self, const MenuAction& action) {
                         if (const auto* chosen = action.as<TrayAction>()) {
                           self.port_.perform(*chosen);
                         }
                       }),
  });
  rebuildMenu();
}

void StatusItemController::rebuildMenu() {
  const auto summary = port_.summary();
  updateOutsideMenu(summary);
  item_.setTitle(statusTitle(summary.agent));
  if (!menuIsOpen_) item_.setMenu(statusMenu(port_.menu()));
}

void StatusItemController::updateProgress() {
  updateOutsideMenu(port_.summary());
}

void StatusItemController::updateOutsideMenu(const Summary& summary) {
  item_.setIcon(statusIcon(summary.agent));
  if (summary.known) item_.setDescription(describe(summary.agent, summary.tailnets));
}

}  // namespace zephyl
