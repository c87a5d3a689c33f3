#pragma once

#include <cstdint>
#include <vector>

#include "Desktop/Freedesktop/Bus/WatchedName.hpp"
#include "Desktop/Freedesktop/Menu/LevelReaders.hpp"
#include "Desktop/Freedesktop/Menu/MenuProperties.hpp"

namespace zephyl {

/// The hosts that read the menu over one connection to the bus. Bus thread only.
class MenuReaders {
 public:
  void connected(const BusConnection& connection);
  void disconnected();

  /// Records that the caller reads. Returns how dots are shown to it.
  DotStyle styleFor(sd_bus_message& call);
  /// Returns how dots are shown to the host that has read last.
  [[nodiscard]] DotStyle lastStyle() const { return lastStyle_; }
  /// Returns whether any host has read. Without a reader no signals are needed.
  [[nodiscard]] bool any() const { return any_; }

  /// Records that the caller reads `depth` levels below `row`. Returns the ids of the submenus that
  /// must be announced to it, see `LevelReaders`.
  std::vector<std::int32_t> unread(sd_bus_message& call, const MenuRow& row, int depth);
  /// Forgets the submenus that are no longer in the layout.
  void retain(const MenuLayout& layout) { levelReaders_.retain(layout); }

 private:
  WatchedName gnomeShell_{"org.gnome.Shell"};
  DotStyle gnomeStyle_ = DotStyle::character;
  LevelReaders levelReaders_;
  DotStyle lastStyle_ = DotStyle::icon;
  bool any_ = false;
};

}  // namespace zephyl
