#include "Desktop/Freedesktop/Menu/PublishedMenu.hpp"

#include <utility>

namespace zephyl {

bool PublishedMenu::update() {
  if (!wanted_ || held_) return false;
  const auto difference = layout_.update(std::exchange(wanted_, nullptr));
  changes_.add(difference);
  if (difference.menus.empty()) return false;
  ++revision_;
  return true;
}

}  // namespace zephyl
