#include "Desktop/Freedesktop/Menu/LevelReaders.hpp"

namespace zephyl {

namespace {

/// Appends the submenus that are `depth` levels below `row`.
void collect(const MenuRow& row, int depth, std::vector<std::int32_t>& found) {
  if (depth == 0) {
    if (!row.children.empty() && row.id != MenuLayout::rootId) found.push_back(row.id);
    return;
  }
  for (const auto& child : row.children) collect(child, depth - 1, found);
}

}  // namespace

std::vector<std::int32_t> LevelReaders::unread(const std::string& host, const MenuRow& row,
                                               int depth) {
  std::vector<std::int32_t> found;
  if (depth <= 0) return found;
  collect(row, depth, found);
  if (found.empty()) return found;
  if (!hosts_.contains(host) && hosts_.size() == maximum) hosts_.clear();
  auto& known = hosts_[host];
  std::erase_if(found, [&](std::int32_t id) { return !known.insert(id).second; });
  return found;
}

void LevelReaders::retain(const MenuLayout& layout) {
  for (auto& [host, known] : hosts_) {
    std::erase_if(known, [&](std::int32_t id) { return layout.find(id) == nullptr; });
  }
}

}  // namespace zephyl
