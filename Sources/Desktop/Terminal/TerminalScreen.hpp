#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Desktop/Desktop.hpp"
#include "Desktop/Dialogs.hpp"
#include "Desktop/InputGuard.hpp"
#include "Desktop/Terminal/Drawing/Canvas.hpp"
#include "Desktop/Terminal/Drawing/KeyDecoder.hpp"
#include "Desktop/Terminal/Drawing/Painter.hpp"
#include "Desktop/Terminal/Views/DialogStack.hpp"
#include "Desktop/Terminal/Views/MenuView.hpp"
#include "Desktop/Terminal/Views/NoticeLine.hpp"
#include "System/Concurrency/Clock.hpp"
#include "System/Concurrency/MainLoop.hpp"
#include "System/Data/LogRing.hpp"

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
/// nothing while the terminal does not keep up. Idle while nothing changes.
///
/// Main thread only. Owned by a `shared_ptr`. Pending tasks hold it weakly.
class TerminalScreen : public std::enable_shared_from_this<TerminalScreen> {
 public:
  /// How long a dialog that the user requested accepts no answer after it appeared. Any other
  /// dialog ignores all keys as `InputGuard` requires, also when the terminal reports that it has
  /// become active. The latter also applies to a requested dialog that permits something. While a
  /// dialog accepts no answer, no button is marked and no hint for closing it is shown.
  static constexpr Duration answerDelay = std::chrono::milliseconds(400);
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
  [[nodiscard]] std::vector<std::string> unseenLog() const;

 private:
  /// Whether the topmost dialog has a guard, and the guard's state.
  enum class TopGuard { none, closed, open };

  void changed();
  void changedAfter(Duration delay, Timer& timer);
  void draw();
  void drawMenuScreen(Canvas& canvas);
  void drawStatus(Canvas& canvas, int rows) const;
  void drawNoticeOverLog(Canvas& canvas) const;
  [[nodiscard]] std::string hints(int columns) const;
  void scheduleFading();
  /// Records that the topmost dialog is on screen.
  void topWasDrawn();
  /// Handles that the terminal has become active.
  void guardTopAgain();
  void handleInDialog(const Key& key);
  /// Returns when the topmost dialog, which must exist, accepts an answer if no further key is
  /// pressed.
  [[nodiscard]] Instant topMayBeAnsweredAt(Instant now) const;

  void handle(const Key& key);
  void handleInMenu(const Key& key);
  void handleInLog(const Key& key);
  void run(const MenuView::Outcome& outcome);
  void openLog();
  [[nodiscard]] std::string wholeLog() const;
  void showLogLines();
  void openHelp();
  void activateNotification();
  void waitForRestOfKey();

  Services services_;
  const TerminalType type_;
  const TerminalCapabilities capabilities_;
  Painter painter_;
  KeyDecoder decoder_;
  Timer keyTimer_;
  Timer fadingTimer_;
  Timer logTimer_;
  Timer guardTimer_;  // set while the topmost dialog cannot be answered

  StatusIcon icon_ = StatusIcon::idle;
  std::string title_;
  std::string description_;
  MenuView menu_;
  NoticeLine notices_;
  DialogStack boxes_;
  std::optional<DialogStack::Number> drawnTop_;  // the topmost dialog at the last drawing
  Instant topSince_{};
  TopGuard topGuard_ = TopGuard::none;
  InputGuard guard_;  // of the topmost dialog
  LogRing log_;
  std::size_t unseenLines_ = 0;
  std::optional<LogBox> logBox_;
  std::string unsent_;  // written with the next drawing
  bool drawingIsDue_ = false;
  bool ended_ = false;
};

}  // namespace zephyl
