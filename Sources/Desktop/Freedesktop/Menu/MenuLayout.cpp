#include "Desktop/Freedesktop/Menu/MenuLayout.hpp"

#include <algorithm>
#include <string_view>
#include <utility>

namespace zephyl {

namespace {

std::shared_ptr<const Menu> placeholder() {
  return std::make_shared<const Menu>(Menu{{.key = "", .title = "Zephyl", .enabled = false}});
}

/// Returns whether the row may keep its id. Hosts do not expect these properties to change.
bool sameRow(const MenuEntry& before, const MenuEntry& now) {
  return before.key == now.key && before.kind == now.kind && before.action == now.action &&
         before.submenu.empty() == now.submenu.empty() &&
         before.dot.has_value() == now.dot.has_value() && before.shortcut == now.shortcut;
}

bool hasSameAppearance(const MenuEntry& before, const MenuEntry& now) {
  return before.title == now.title && before.dot == now.dot && before.enabled == now.enabled;
}

/// Matches entries with the rows of an earlier layout, each row once. A row that follows the last
/// match is found with one comparison, any other row by its key.
class EarlierRows {
 public:
  explicit EarlierRows(const std::vector<MenuRow>& rows) : rows_(rows), used_(rows.size()) {}

  const MenuRow* match(const MenuEntry& entry) {
    if (next_ < rows_.size() && isMatch(next_, entry)) return use(next_);
    makeIndex();
    const auto [first, last] = byKey_.equal_range(entry.key);
    const auto found = std::find_if(
        first, last, [&](const auto& candidate) { return isMatch(candidate.second, entry); });
    if (found == last) return nullptr;
    inOrder_ = false;
    const std::size_t index = found->second;
    byKey_.erase(found);
    return use(index);
  }
  [[nodiscard]] bool inOrder() const { return inOrder_; }

 private:
  [[nodiscard]] bool isMatch(std::size_t index, const MenuEntry& entry) const {
    return !used_[index] && sameRow(*rows_[index].entry, entry);
  }

  const MenuRow* use(std::size_t index) {
    used_[index] = true;
    next_ = index + 1;
    return &rows_[index];
  }

  void makeIndex() {
    if (std::exchange(hasIndex_, true)) return;
    byKey_.reserve(rows_.size());
    for (std::size_t i = 0; i < rows_.size(); ++i) byKey_.emplace(rows_[i].entry->key, i);
  }

  const std::vector<MenuRow>& rows_;
  std::vector<bool> used_;
  std::unordered_multimap<std::string_view, std::size_t> byKey_;
  std::size_t next_ = 0;
  bool hasIndex_ = false;
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
    const MenuRow* known = earlier.match(entries[i]);
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
    if (!hasSameAppearance(*known->entry, entries[i])) {
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
