#pragma once

#include <functional>
#include <string>

#include "Desktop/Menu.hpp"

namespace zephyl {

/// The status item's picture.
enum class StatusIcon { idle, busy };

/// The user's actions in the menu. Called on the main thread. Unset functions are ignored.
struct MenuEvents {
  std::function<void()> needsUpdate;  ///< the menu is about to open and `setMenu` should be called
  std::function<void()> willOpen;
  std::function<void()> didClose;
  std::function<void(const MenuAction&)> chosen;
};

/// The tray's only item in the panel. Setting a value that is already shown costs nothing.
class StatusItem {
 public:
  virtual ~StatusItem() = default;
  StatusItem() = default;
  StatusItem(const StatusItem&) = delete;
  StatusItem& operator=(const StatusItem&) = delete;

  virtual void setIcon(StatusIcon icon) = 0;
  /// Sets the short text beside the icon, which may be empty.
  virtual void setTitle(const std::string& title) = 0;
  /// Sets the state in words, for the tool tip, screen readers and the log.
  virtual void setDescription(const std::string& description) = 0;
  virtual void setMenu(const Menu& menu) = 0;
  virtual void setMenuEvents(MenuEvents events) = 0;
};

}  // namespace zephyl
