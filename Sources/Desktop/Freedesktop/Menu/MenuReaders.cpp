#include "Desktop/Freedesktop/Menu/MenuReaders.hpp"

#include "Desktop/Freedesktop/Menu/EmojiFont.hpp"

namespace zephyl {

void MenuReaders::connected(const BusConnection& connection) {
  gnomeShell_.watch(connection, [this](const std::string& owner) {
    if (owner.empty()) return;
    gnomeStyle_ = hasEmojiFont() ? DotStyle::character : DotStyle::words;
  });
}

void MenuReaders::disconnected() {
  gnomeShell_.forget();
  levelReaders_.clear();
  any_ = false;
}

DotStyle MenuReaders::styleFor(sd_bus_message& call) {
  any_ = true;
  if (gnomeShell_.sent(call)) {
    lastStyle_ = gnomeStyle_;
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
