#pragma once

#include <cstdint>
#include <memory>

#include "Desktop/Freedesktop/Menu/MenuChanges.hpp"
#include "Desktop/Freedesktop/Menu/MenuLayout.hpp"

namespace zephyl {

/// The menu that hosts read, and a newer menu that is not published yet. While held, the published
/// menu does not change. A value without synchronization.
class PublishedMenu {
 public:
  void set(std::shared_ptr<const Menu> menu) { wanted_ = std::move(menu); }
  /// Returns whether a newer menu is not published yet.
  [[nodiscard]] bool isOutdated() const { return wanted_ != nullptr; }
  /// Publishes the newer menu unless held. Returns whether rows were added, removed or moved.
  bool update();

  void setHeld(bool held) { held_ = held; }
  [[nodiscard]] bool isHeld() const { return held_; }

  [[nodiscard]] const MenuLayout& layout() const { return layout_; }
  /// Returns a number that increases whenever rows are added, removed or moved.
  [[nodiscard]] std::uint32_t revision() const { return revision_; }
  /// Returns the changes since the last notification of the hosts. The caller must clear them after
  /// notifying.
  [[nodiscard]] MenuChanges& changes() { return changes_; }

 private:
  MenuLayout layout_;
  MenuChanges changes_;
  std::uint32_t revision_ = 1;
  std::shared_ptr<const Menu> wanted_;
  bool held_ = false;
};

}  // namespace zephyl
