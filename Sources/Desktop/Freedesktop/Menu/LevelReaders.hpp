#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "Desktop/Freedesktop/Menu/MenuLayout.hpp"

namespace zephyl {

/// The hosts that read the menu level by level, and the submenus that were announced to each of
/// them.
///
/// Such a host reads a submenu when it first opens, or when a LayoutUpdated names it. Until then
/// the submenu is empty, so the host cannot place it on the screen. So each submenu is announced
/// once as soon as the host knows its row. A value without synchronization.
class LevelReaders {
 public:
  /// The maximum number of hosts. When it is exceeded, all are forgotten, which only causes more
  /// signals.
  static constexpr std::size_t maximum = 8;

  /// Records that `host` has read `depth` levels below `row`, or all levels if `depth` is negative.
  /// Returns the ids of the submenus at which the reading ended and that were not returned for this
  /// host before.
  std::vector<std::int32_t> unread(const std::string& host, const MenuRow& row, int depth);
  /// Returns whether the host has ever left a submenu unread.
  [[nodiscard]] bool contains(std::string_view host) const { return hosts_.contains(host); }
  /// Forgets the submenus that are no longer in the layout. Their ids are never reused.
  void retain(const MenuLayout& layout);
  void clear() { hosts_.clear(); }

 private:
  std::map<std::string, std::set<std::int32_t>, std::less<>> hosts_;  // the submenus, by host
};

}  // namespace zephyl
