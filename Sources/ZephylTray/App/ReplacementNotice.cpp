#include "ZephylTray/App/ReplacementNotice.hpp"

#include "System/Files/Log.hpp"

namespace zephyl {

void ReplacementNotice::check() {
  if (state_ == State::reported) return;
  if (!port_.isReplaced() || port_.isUpdatingItself()) {
    state_ = State::unchanged;
    return;
  }
  if (state_ == State::unchanged) {
    state_ = State::replaced;
    return;
  }
  state_ = State::reported;
  log("zephyl-tray was updated; quit it and start it again to use the new version");
  port_.notify({.identifier = "program-replaced",
                .title = "Zephyl was updated",
                .body = "To use the new version, quit Zephyl in its menu and start it again.",
                .actionTitle = ""});
}

}  // namespace zephyl
