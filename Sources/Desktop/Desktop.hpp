#pragma once

#include <functional>
#include <string>
#include <vector>

#include <sys/types.h>

#include "Desktop/FolderRequest.hpp"
#include "Desktop/StatusItem.hpp"

/// The services of a desktop session, as values and narrow interfaces, so that an adapter can use
/// D-Bus, a terminal, nothing at all, or another system's application framework. All functions must
/// be called on the main thread and call back there. No function waits for the user.
namespace zephyl {

/// A message that is shown beside the user's current work. It replaces an earlier one with the same
/// identifier.
struct Notification {
  std::string identifier;
  std::string title;
  std::string body;
  std::string actionTitle;  ///< title of its button; empty for no button

  bool operator==(const Notification&) const = default;
};

/// A program in the user's session with an identifier such as "com.zephyl.desktop".
struct RunningApplication {
  std::string identifier;
  pid_t pid = 0;

  bool operator==(const RunningApplication&) const = default;
};

/// The programs that can open a text file. The adapter knows their names.
enum class Editor { cursor, vsCode, textEdit };

/// The desktop's events. Events without a handler are ignored.
struct DesktopEvents {
  std::function<void()> reopened;  ///< called when the user starts the running program again
  /// Called when the user has chosen a notification or its button.
  std::function<void(const std::string& identifier)> notificationActivated;
};

/// The services of one desktop session.
class Desktop {
 public:
  virtual ~Desktop() = default;
  Desktop() = default;
  Desktop(const Desktop&) = delete;
  Desktop& operator=(const Desktop&) = delete;

  virtual void setEvents(DesktopEvents events) = 0;

  /// Returns the status item, which is created on first use and lives as long as the desktop.
  virtual StatusItem& statusItem() = 0;

  /// Requests permission to post notifications. Without permission they are not shown.
  virtual void requestNotificationAuthorization() = 0;
  virtual void postNotification(const Notification& notification) = 0;
  /// Removes a posted notification. Does nothing if it is gone.
  virtual void removeNotification(const std::string& identifier) = 0;

  /// Returns the running applications with this identifier.
  [[nodiscard]] virtual std::vector<RunningApplication> runningApplications(
      const std::string& identifier) = 0;
  /// Brings all windows of a running application to the front.
  virtual void activate(const RunningApplication& application) = 0;
  /// Asks a running application to end.
  virtual void terminate(const RunningApplication& application) = 0;

  /// Opens a web address in the user's browser.
  virtual void openURL(const std::string& url) = 0;
  /// Opens a file in an editor if that editor is installed.
  virtual void openFile(const std::string& path, Editor editor) = 0;
  /// Lets the user choose a folder. Calls `done` once.
  virtual void chooseFolder(const FolderRequest& request,
                            std::function<void(FolderChoice)> done) = 0;

  /// Returns and clears the activation token of the user's action that is being handled. It permits
  /// the window that the user asked for to come to the front. Empty if the action came without a
  /// token, if the token was consumed, and while no action is handled. The functions above that
  /// open or activate a program consume it themselves.
  virtual std::string consumeActivationToken() { return {}; }
};

}  // namespace zephyl
