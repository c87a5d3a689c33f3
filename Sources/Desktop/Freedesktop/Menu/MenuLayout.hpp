#pragma once

#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

#include "Desktop/Menu.hpp"

namespace zephyl {

/// A row of the published menu with the id by which hosts know it.
struct MenuRow {
  std::int32_t id = 0;
  const MenuEntry* entry = nullptr;  ///< null for the root
  std::vector<MenuRow> children;
};

/// The menu as hosts know it. A row keeps its id as long as it has the same key under the same
/// parent, the same action and the same shape (separator, submenu, dot, key equivalent). Title, dot
/// color and enabled may change. An id is never reused, so a click on a row of an earlier layout
/// refers to that row or to no row.
///
/// An empty menu gets a placeholder row, because some hosts show their own menu instead of an empty
/// one. A value without synchronization.
class MenuLayout {
 public:
  /// The changes of an update. Valid until the next update.
  struct Difference {
    struct Change {
      const MenuRow* row;
      const MenuEntry* before;
    };
    std::vector<Change> changes;  ///< rows that remained with a changed appearance
    /// The menus, by the ids of their parents, whose own rows were added, removed or moved. Does
    /// not contain new submenus, because no host has read them yet.
    std::vector<std::int32_t> menus;
    std::shared_ptr<const Menu> old;  ///< keeps `before` alive
  };

  static constexpr std::int32_t rootId = 0;

  MenuLayout();
  MenuLayout(const MenuLayout&) = delete;
  MenuLayout& operator=(const MenuLayout&) = delete;

  Difference update(std::shared_ptr<const Menu> menu);

  [[nodiscard]] const MenuRow& root() const { return root_; }
  /// Returns null if the id is not in this layout.
  [[nodiscard]] const MenuRow* find(std::int32_t id) const;
  /// Returns the ids of all rows, including the root.
  [[nodiscard]] std::vector<std::int32_t> ids() const;

 private:
  /// Returns the rows for `entries`. Rows that match `before` keep their ids. Sets `changed` if
  /// rows were added, removed or moved.
  std::vector<MenuRow> matched(const std::vector<MenuEntry>& entries,
                               const std::vector<MenuRow>& before, Difference& difference,
                               bool& changed);
  /// Returns new rows for `entries`.
  std::vector<MenuRow> added(const std::vector<MenuEntry>& entries);
  void index(const MenuRow& row);

  std::shared_ptr<const Menu> menu_;
  MenuRow root_;
  std::unordered_map<std::int32_t, const MenuRow*> rows_;
  std::int32_t lastId_ = rootId;
};

}  // namespace zephyl
