#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <vector>

#include "Desktop/Freedesktop/Menu/MenuLayout.hpp"

namespace zephyl {

/// What has changed in the published menu since the hosts were notified last. Differences are
/// merged: of several changes of one row only the first state counts. A value without a thread.
class MenuChanges {
 public:
  void add(const MenuLayout::Difference& difference);
  void clear();

  [[nodiscard]] bool empty() const { return before_.empty() && menus_.empty(); }
  /// What the rows showed when the hosts were notified last, by id. The entries live until `clear`.
  [[nodiscard]] const std::map<std::int32_t, const MenuEntry*>& before() const { return before_; }
  /// The menus whose own rows came, went or moved, by the ids of their parents; an outer menu comes
  /// before the menus in it.
  [[nodiscard]] const std::set<std::int32_t>& menus() const { return menus_; }

 private:
  std::map<std::int32_t, const MenuEntry*> before_;
  std::set<std::int32_t> menus_;
  std::vector<std::shared_ptr<const Menu>> old_;  // keep the entries alive
};

}  // namespace zephyl
