#pragma once

#include <cstdint>
#include <memory>

#include "Desktop/Freedesktop/Menu/MenuChanges.hpp"
#include "Desktop/Freedesktop/Menu/MenuLayout.hpp"

namespace zephyl {

/// The menu that hosts are given, and the newer one that was set and not published yet. While it is
/// held, what is published stays as it is. A value without a thread.
class PublishedMenu {
 public:
  void set(std::shared_ptr<const Menu> menu) { wanted_ = std::move(menu); }
  /// Whether a menu was set that is not published yet.
  [[nodiscard]] bool isOutdated() const { return wanted_ != nullptr; }
  /// Publishes the menu that was set, unless it is held. Returns whether rows came, went or moved.
  bool update();

  void setHeld(bool held) { held_ = held; }
  [[nodiscard]] bool isHeld() const { return held_; }

  [[nodiscard]] const MenuLayout& layout() const { return layout_; }
  /// Grows whenever rows come, go or move.
  [[nodiscard]] std::uint32_t revision() const { return revision_; }
  /// What has changed since the hosts were notified last. The caller that notifies them clears it.
  [[nodiscard]] MenuChanges& changes() { return changes_; }

 private:
  MenuLayout layout_;
  MenuChanges changes_;
  std::uint32_t revision_ = 1;
  std::shared_ptr<const Menu> wanted_;
  bool held_ = false;
};

}  // namespace zephyl
