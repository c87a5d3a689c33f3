#include "Desktop/Freedesktop/MenuLayout.hpp"

#include <algorithm>
#include <utility>

namespace zephyl {

namespace {

std::shared_ptr<const Menu> placeholder() {
  return std::make_shared<const Menu>(Menu{{.key = "", .title = "Zephyl", .enabled = false}});
}

/// Whether hosts may go on knowing the row by its id: they do not expect these to change.
bool sameRow(const MenuEntry& before, const MenuEntry& now) {
  return before.key == now.key && before.kind == now.kind && before.action == now.action &&
         before.submenu.empty() == now.submenu.empty() &&
         before.dot.has_value() == now.dot.has_value() && before.keyEquivalent == now.keyEquivalent;
}

bool looksTheSame(const MenuEntry& before, const MenuEntry& now) {
  return before.title == now.title && before.dot == now.dot && before.enabled == now.enabled;
}

/// Finds the rows of an earlier layout again, each once; in order, it takes one look each.
class EarlierRows {
 public:
  explicit EarlierRows(const std::vector<MenuRow>& rows) : rows_(rows), taken_(rows.size()) {}

  const MenuRow* take(const MenuEntry& entry) {
    for (std::size_t looked = 0; looked < rows_.size(); ++looked) {
      const std::size_t i = (next_ + looked) % rows_.size();
      if (taken_[i] || !sameRow(*rows_[i].entry, entry)) continue;
      taken_[i] = true;
      if (looked != 0) inOrder_ = false;
      next_ = i + 1;
      return &rows_[i];
    }
    return nullptr;
  }
  [[nodiscard]] bool inOrder() const { return inOrder_; }

 private:
  const std::vector<MenuRow>& rows_;
  std::vector<bool> taken_;
  std::size_t next_ = 0;
  bool inOrder_ = true;
};

}  // namespace

MenuLayout::MenuLayout() {
  update(placeholder());
}

MenuLayout::Difference MenuLayout::update(std::shared_ptr<const Menu> menu) {
  if (menu->empty()) menu = placeholder();
  Difference difference;
  MenuRow root;
  bool changed = false;
  root.children = matched(*menu, root_.children, difference, changed);
  if (changed) difference.menus.push_back(rootId);
  root_ = std::move(root);
  difference.old = std::exchange(menu_, std::move(menu));
  rows_.clear();
  index(root_);
  return difference;
}

std::vector<MenuRow> MenuLayout::matched(const std::vector<MenuEntry>& entries,
                                         const std::vector<MenuRow>& before, Difference& difference,
                                         bool& changed) {
  EarlierRows earlier(before);
  std::vector<MenuRow> rows(entries.size());
  for (std::size_t i = 0; i < entries.size(); ++i) {
    const MenuRow* known = earlier.take(entries[i]);
    rows[i].entry = &entries[i];
    if (known == nullptr) {
      changed = true;
      rows[i].id = ++lastId_;
      rows[i].children = added(entries[i].submenu);
      continue;
    }
    rows[i].id = known->id;
    bool submenuChanged = false;
    rows[i].children = matched(entries[i].submenu, known->children, difference, submenuChanged);
    if (submenuChanged) difference.menus.push_back(known->id);
    if (!looksTheSame(*known->entry, entries[i])) {
      difference.changes.push_back({&rows[i], known->entry});
    }
  }
  if (rows.size() != before.size() || !earlier.inOrder()) changed = true;
  return rows;
}

std::vector<MenuRow> MenuLayout::added(const std::vector<MenuEntry>& entries) {
  std::vector<MenuRow> rows;
  rows.reserve(entries.size());
  for (const auto& entry : entries) {
    const std::int32_t id = ++lastId_;
    rows.push_back({.id = id, .entry = &entry, .children = added(entry.submenu)});
  }
  return rows;
}

void MenuLayout::index(const MenuRow& row) {
  rows_.emplace(row.id, &row);
  for (const auto& child : row.children) index(child);
}

const MenuRow* MenuLayout::find(std::int32_t id) const {
  const auto found = rows_.find(id);
  return found != rows_.end() ? found->second : nullptr;
}

std::vector<std::int32_t> MenuLayout::ids() const {
  std::vector<std::int32_t> ids;
  ids.reserve(rows_.size());
  for (const auto& [id, row] : rows_) ids.push_back(id);
  std::sort(ids.begin(), ids.end());
  return ids;
}

}  // namespace zephyl
