#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "Desktop/Freedesktop/Menu/MenuLayout.hpp"

namespace zephyl {

/// The hosts that read the menu level by level, and the submenus of which each was notified.
///
/// Such a host reads a submenu when it first opens, or when a LayoutUpdated names it. An unread
/// submenu is empty until then, so that the host cannot place it on the screen; therefore each is
/// named once as soon as the host knows its row. A value without a thread.
class LevelReaders {
 public:
  /// Hosts that are remembered; one too many makes all of them unknown, which costs signals only.
  static constexpr std::size_t maximum = 8;

  /// `host` has read `depth` levels below `row`, all of them when negative. Returns the ids of the
  /// submenus at which the reading ended and that were not returned for this host before.
  std::vector<std::int32_t> unread(const std::string& host, const MenuRow& row, int depth);
  /// Whether the host has ever left a submenu unread.
  [[nodiscard]] bool contains(std::string_view host) const { return hosts_.contains(host); }
  /// Forgets the submenus that are not in the layout any more; their ids are never used again.
  void retain(const MenuLayout& layout);
  void clear() { hosts_.clear(); }

 private:
  std::map<std::string, std::set<std::int32_t>, std::less<>> hosts_;  // the submenus, by host
};

}  // namespace zephyl
