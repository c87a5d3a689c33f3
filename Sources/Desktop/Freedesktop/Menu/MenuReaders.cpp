#include "Desktop/Freedesktop/Menu/MenuReaders.hpp"

namespace zephyl {

void MenuReaders::disconnected() {
  gnomeShell_.forget();
  levelReaders_.clear();
  any_ = false;
}

DotStyle MenuReaders::styleFor(sd_bus_message& call) {
  any_ = true;
  if (gnomeShell_.sent(call)) {
    lastStyle_ = DotStyle::character;
  } else if (levelReaders_.contains(senderOf(call))) {
    lastStyle_ = DotStyle::characterWhenDisabled;
  } else {
    lastStyle_ = DotStyle::icon;
  }
  return lastStyle_;
}

std::vector<std::int32_t> MenuReaders::unread(sd_bus_message& call, const MenuRow& row, int depth) {
  return levelReaders_.unread(std::string(senderOf(call)), row, depth);
}

}  // namespace zephyl
