#pragma once

#include <string>
#include <string_view>
#include <vector>

/// What the components ask of a desktop session. Everything here is a value or a narrow
/// interface, so that an adapter can be D-Bus, a terminal, nothing at all, or another system's
/// application framework. All of it is called on the main thread; nothing here waits for a user.
namespace zephyl {

/// The status item's picture.
enum class StatusIcon { idle, busy };

/// The one item that the tray shows in the panel.
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
};

/// A log to be looked at.
struct LogWindow {
  std::string title;
  std::string message;  ///< what went wrong; empty when nothing did
  std::vector<std::string> log;
};

class Desktop {
 public:
  virtual ~Desktop() = default;
  Desktop() = default;
  Desktop(const Desktop&) = delete;
  Desktop& operator=(const Desktop&) = delete;

  /// Created on first use; lives as long as the desktop.
  virtual StatusItem& statusItem() = 0;
  /// Asks for the right to post notifications; without an answer they simply do not appear.
  virtual void requestNotificationAuthorization() = 0;
  /// Replaces the log window that is open, if one is.
  virtual void presentLogWindow(const LogWindow& window) = 0;
};

}  // namespace zephyl
