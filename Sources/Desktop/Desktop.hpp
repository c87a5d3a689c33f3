#pragma once

#include <functional>
#include <string>
#include <vector>

#include <sys/types.h>

#include "Desktop/FolderRequest.hpp"
#include "Desktop/StatusItem.hpp"

/// What the components ask of a desktop session. Everything here is a value or a narrow
/// interface, so that an adapter can be D-Bus, a terminal, nothing at all, or another system's
/// application framework. All of it is called on the main thread, and calls back there; nothing
/// here waits for a user.
namespace zephyl {

/// A message that appears beside what the user is doing. One with the identifier of an earlier one
/// replaces it.
struct Notification {
  std::string identifier;
  std::string title;
  std::string body;
  std::string actionTitle;  ///< of its button; empty for none

  bool operator==(const Notification&) const = default;
};

/// A program in the user's session that is known by an identifier, such as "com.zephyl.desktop".
struct RunningApplication {
  std::string identifier;
  pid_t pid = 0;

  bool operator==(const RunningApplication&) const = default;
};

/// The programs that a text file can be opened in. The desktop knows what they are called.
enum class Editor { cursor, vsCode, textEdit };

/// Events of the desktop. An event without a handler is ignored.
struct DesktopEvents {
  std::function<void()> reopened;  ///< the user has started the running program again
  /// The user has chosen a notification, or its button.
  std::function<void(const std::string& identifier)> notificationActivated;
};

class Desktop {
 public:
  virtual ~Desktop() = default;
  Desktop() = default;
  Desktop(const Desktop&) = delete;
  Desktop& operator=(const Desktop&) = delete;

  virtual void setEvents(DesktopEvents events) = 0;

  /// Created on first use; lives as long as the desktop.
  virtual StatusItem& statusItem() = 0;

  /// Asks for the right to post notifications; without an answer they simply do not appear.
  virtual void requestNotificationAuthorization() = 0;
  virtual void postNotification(const Notification& notification) = 0;
  /// Takes a posted notification away again; nothing when it is gone.
  virtual void removeNotification(const std::string& identifier) = 0;

  /// Those that run under this identifier now.
  [[nodiscard]] virtual std::vector<RunningApplication> runningApplications(
      const std::string& identifier) = 0;
  /// Brings all windows of a running application to the front.
  virtual void activate(const RunningApplication& application) = 0;
  /// Asks a running application to end.
  virtual void terminate(const RunningApplication& application) = 0;

  /// Opens a web address in the user's browser.
  virtual void openURL(const std::string& url) = 0;
  /// Opens a file in an editor, where that is installed.
  virtual void openFile(const std::string& path, Editor editor) = 0;
  /// Asks the user for a folder. Calls `done` once.
  virtual void chooseFolder(const FolderRequest& request,
                            std::function<void(FolderChoice)> done) = 0;
};

}  // namespace zephyl
