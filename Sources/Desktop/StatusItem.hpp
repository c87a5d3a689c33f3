#pragma once

#include <functional>
#include <string>

#include "Desktop/Menu.hpp"

namespace zephyl {

/// The status item's picture.
enum class StatusIcon { idle, busy };

/// What the user does with the menu. Called on the main thread. An unset event is ignored.
struct MenuEvents {
  std::function<void()> needsUpdate;  ///< it is about to open: `setMenu` with what it should say
  std::function<void()> willOpen;
  std::function<void()> didClose;
  std::function<void(const MenuAction&)> chosen;
};

/// The one item that the tray shows in the panel. Setting what is shown already costs nothing.
class StatusItem {
 public:
  virtual ~StatusItem() = default;
  StatusItem() = default;
  StatusItem(const StatusItem&) = delete;
  StatusItem& operator=(const StatusItem&) = delete;

  virtual void setIcon(StatusIcon icon) = 0;
  /// The short text beside the icon; empty for none.
  virtual void setTitle(const std::string& title) = 0;
  /// The state in words: for the tool tip, for screen readers, for a log.
  virtual void setDescription(const std::string& description) = 0;
  virtual void setMenu(const Menu& menu) = 0;
  virtual void setMenuEvents(MenuEvents events) = 0;
};

}  // namespace zephyl
