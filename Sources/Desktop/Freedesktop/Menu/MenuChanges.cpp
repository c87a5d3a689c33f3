#include "Desktop/Freedesktop/Menu/MenuChanges.hpp"

namespace zephyl {

void MenuChanges::add(const MenuLayout::Difference& difference) {
  bool refers = false;
  for (const auto& change : difference.changes) {
    refers |= before_.emplace(change.row->id, change.before).second;
  }
  if (refers) old_.push_back(difference.old);
  menus_.insert(difference.menus.begin(), difference.menus.end());
}

void MenuChanges::clear() {
  before_.clear();
  menus_.clear();
  old_.clear();
}

}  // namespace zephyl
