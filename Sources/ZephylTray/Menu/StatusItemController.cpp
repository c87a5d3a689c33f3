#include "ZephylTray/Menu/StatusItemController.hpp"

#include "System/Concurrency/MainLoop.hpp"
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

void StatusItemController::showEvent(bool menuDiffers) {
  menuOutdated_ = menuOutdated_ || menuDiffers;
  if (laterEvents_) return;
  const Instant now = clock_.now();
  if (now >= windowEnd_) {
    windowEnd_ = now + eventWindow;
    eventsShown_ = 0;
  }
  if (++eventsShown_ <= maxEventsShown) return showEvents();
  laterEvents_ =
      mainLoop_.after(clock_, windowEnd_ - now, weakly(this, [](StatusItemController& self) {
                        self.laterEvents_.cancel();
                        self.showEvents();
                      }));
}

void StatusItemController::showEvents() {
  if (std::exchange(menuOutdated_, false)) return rebuildMenu();
  updateOutsideMenu(port_.summary());
}

void StatusItemController::updateOutsideMenu(const Summary& summary) {
  item_.setIcon(statusIcon(summary.agent));
  if (summary.known) item_.setDescription(describe(summary.agent, summary.tailnets));
}

}  // namespace zephyl
