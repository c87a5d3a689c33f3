#pragma once

#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

#include "Desktop/Menu.hpp"

namespace zephyl {

/// A row of the menu as it is published: what it shows, under the id by which hosts know it.
struct MenuRow {
  std::int32_t id = 0;
  const MenuEntry* entry = nullptr;  ///< none for the root
  std::vector<MenuRow> children;
};

/// The menu as hosts know it. A row keeps its id as long as it stays what it is: the same key
/// under the same parent, with the same action, of the same shape (separator, submenu, dot, key
/// equivalent); title, color of the dot and enabled may change. An id is never used again, so a
/// click on a row of an earlier layout finds that row or none.
///
/// A menu without rows gets one that says so: some hosts show a menu of their own in place of an
/// empty one. A value without a thread.
class MenuLayout {
 public:
  /// What an update has changed. Valid until the next one.
  struct Difference {
    struct Change {
      const MenuRow* row;
      const MenuEntry* before;
    };
    std::vector<Change> changes;  ///< rows that stayed, but show something else
    /// The menus, by the ids of their parents, whose own rows came, went or moved. A new submenu is
    /// not among them: no host has read it yet.
    std::vector<std::int32_t> menus;
    std::shared_ptr<const Menu> old;  ///< keeps `before` alive
  };

  static constexpr std::int32_t rootId = 0;

  MenuLayout();
  MenuLayout(const MenuLayout&) = delete;
  MenuLayout& operator=(const MenuLayout&) = delete;

  Difference update(std::shared_ptr<const Menu> menu);

  [[nodiscard]] const MenuRow& root() const { return root_; }
  /// None when the id is not in this layout.
  [[nodiscard]] const MenuRow* find(std::int32_t id) const;
  /// Of all rows, the root's among them.
  [[nodiscard]] std::vector<std::int32_t> ids() const;

 private:
  /// The rows for `entries`; those of `before` keep their ids. Returns whether rows came, went or
  /// moved in `changed`.
  std::vector<MenuRow> matched(const std::vector<MenuEntry>& entries,
                               const std::vector<MenuRow>& before, Difference& difference,
                               bool& changed);
  /// All rows for `entries` are new.
  std::vector<MenuRow> added(const std::vector<MenuEntry>& entries);
  void index(const MenuRow& row);

  std::shared_ptr<const Menu> menu_;
  MenuRow root_;
  std::unordered_map<std::int32_t, const MenuRow*> rows_;
  std::int32_t lastId_ = rootId;
};

}  // namespace zephyl
