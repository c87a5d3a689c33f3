#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Desktop/Desktop.hpp"
#include "Desktop/Dialogs.hpp"
#include "Desktop/Terminal/Drawing/Canvas.hpp"
#include "Desktop/Terminal/Drawing/KeyDecoder.hpp"
#include "Desktop/Terminal/Drawing/Painter.hpp"
#include "Desktop/Terminal/Views/AnswerGuard.hpp"
#include "Desktop/Terminal/Views/DialogStack.hpp"
#include "Desktop/Terminal/Views/MenuView.hpp"
#include "Desktop/Terminal/Views/NoticeLine.hpp"
#include "Desktop/Terminal/Views/StatusView.hpp"
#include "Desktop/Terminal/Views/TrayLogView.hpp"
#include "System/Concurrency/Clock.hpp"
#include "System/Concurrency/MainLoop.hpp"

namespace zephyl {

/// The output on which a screen is drawn.
class TerminalOutput {
 public:
  virtual ~TerminalOutput() = default;
  TerminalOutput() = default;
  TerminalOutput(const TerminalOutput&) = delete;
  TerminalOutput& operator=(const TerminalOutput&) = delete;

  [[nodiscard]] virtual ScreenSize size() const = 0;
  /// Returns whether earlier bytes are not written yet. Its owner must call `drained` afterwards.
  [[nodiscard]] virtual bool isBusy() const = 0;
  virtual void write(std::string_view bytes) = 0;
};

/// The contents of the screen: the status line, the menu, a line for notifications, a line of
/// hints, and above them the log and one dialog at a time. Dispatches keys to them.
///
/// Draws once for all changes in one turn of the main loop, and only the changed cells. Draws
/// nothing while the terminal does not keep up. Idle while nothing changes. While a dialog accepts
/// no answer, no button is marked and no hint for closing it is shown.
///
/// Main thread only. Owned by a `shared_ptr`. Pending tasks hold it weakly.
class TerminalScreen : public std::enable_shared_from_this<TerminalScreen> {
 public:
  /// How often new lines of the log are drawn.
  static constexpr Duration logInterval = std::chrono::milliseconds(50);
  /// The maximum delay of the remaining bytes of a key.
  static constexpr Duration keyDelay = std::chrono::milliseconds(50);

  struct Services {
    MainLoop& mainLoop;
    Clock& clock;
    TerminalOutput& output;
  };

  /// Actions of the user and requests of the screen. Unset functions are ignored.
  struct Events {
    MenuEvents menu;
    std::function<void(const std::string& identifier)> notificationActivated;
    std::function<void(const std::string& log)> writeLog;  ///< writes the tray's own log
  };

  /// The services must outlive it.
  TerminalScreen(const Services& services, TerminalType type, TerminalCapabilities capabilities);

  Events events;

  void setIcon(StatusIcon icon);
  void setTitle(const std::string& title);
  void setDescription(const std::string& description);
  void setMenu(const Menu& menu);
  void post(const Notification& notification);
  void removeNotification(const std::string& identifier);
  /// Shows a text in the line for notifications.
  void showNotice(const std::string& text);
  /// Adds lines to the log. They are drawn a moment later, together with following ones.
  void appendLog(std::vector<std::string> lines);
  /// Copies a text to the clipboard, if the terminal supports that.
  void copy(const std::string& text);

  DialogStack::Number presentAlert(const Alert& alert, const std::string& text,
                                   DialogStack::AlertDone done);
  DialogStack::Number presentLog(const LogWindow& window, DialogStack::LogNotify notify);
  void showProgress(DialogStack::Number dialog, const Progress& progress);
  void close(DialogStack::Number dialog);
  /// Ends all dialogs unanswered and draws nothing any more. Must be called when the terminal was
  /// closed.
  void end();

  // Events of the terminal:
  void receive(std::string_view bytes);
  void resized();
  void drained() { draw(); }

  /// Returns the newest lines of the log that were never on screen.
  [[nodiscard]] std::vector<std::string> unseenLog() const { return log_.unseen(); }

 private:
  void changed();
  void changedAfter(Duration delay, Timer& timer);
  void draw();
  void drawMenuScreen(Canvas& canvas);
  void scheduleFading();

  void handle(const Key& key);
  void handleInDialog(const Key& key);
  void handleInMenu(const Key& key);
  void handleInLog(const Key& key);
  void activateNotification();

  struct Timers {
    Timer restOfKey;
    Timer fading;   // of a notification
    Timer log;      // set while new lines of the log wait for a drawing
    Timer opening;  // of the guard: set while the topmost dialog cannot be answered
  };

  Services services_;
  const TerminalCapabilities capabilities_;
  KeyDecoder decoder_;
  Painter painter_;
  Timers timers_;

  StatusView status_;
  MenuView menu_;
  NoticeLine notices_;
  TrayLogView log_;
  DialogStack boxes_;
  AnswerGuard guard_;
  bool drawingIsDue_ = false;
  bool ended_ = false;
};

}  // namespace zephyl
