#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <vector>

#include "Desktop/Freedesktop/Menu/MenuLayout.hpp"

namespace zephyl {

/// The changes of the published menu since the last notification of the hosts. Differences are
/// merged: of several changes of one row, only its first state is kept. A value without
/// synchronization.
class MenuChanges {
 public:
  void add(const MenuLayout::Difference& difference);
  void clear();

  [[nodiscard]] bool empty() const { return before_.empty() && menus_.empty(); }
  /// Returns the rows' entries at the last notification of the hosts, by id. They are valid until
  /// `clear`.
  [[nodiscard]] const std::map<std::int32_t, const MenuEntry*>& before() const { return before_; }
  /// Returns the menus whose own rows were added, removed or moved, by the ids of their parents. An
  /// outer menu precedes the menus in it.
  [[nodiscard]] const std::set<std::int32_t>& menus() const { return menus_; }

 private:
  std::map<std::int32_t, const MenuEntry*> before_;
  std::set<std::int32_t> menus_;
  std::vector<std::shared_ptr<const Menu>> old_;  // keep the entries alive
};

}  // namespace zephyl
