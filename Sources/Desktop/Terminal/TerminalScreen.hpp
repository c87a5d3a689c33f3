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

/// Where a screen is drawn.
class TerminalOutput {
 public:
  virtual ~TerminalOutput() = default;
  TerminalOutput() = default;
  TerminalOutput(const TerminalOutput&) = delete;
  TerminalOutput& operator=(const TerminalOutput&) = delete;

  [[nodiscard]] virtual ScreenSize size() const = 0;
  /// Whether earlier bytes are still on their way; the caller that waits for them calls `drained`.
  [[nodiscard]] virtual bool isBusy() const = 0;
  virtual void write(std::string_view bytes) = 0;
};

/// All that is on the screen: the status line, the menu, a line for notifications, a line of
/// hints, and over them the log, the dialogs, one at a time. Decides which of them a key goes to.
///
/// Draws once for all that changes in one turn of the main loop, and only what changed; while the
/// terminal does not keep up, nothing. Nothing happens while nothing changes.
///
/// Main thread. Owned by a `shared_ptr`; what is on its way holds it weakly.
class TerminalScreen : public std::enable_shared_from_this<TerminalScreen> {
 public:
  /// How long a dialog that the user requested takes no answer after it appeared. Any other dialog
  /// ignores all keys as `InputGuard` says, also when the terminal becomes active and reports that;
  /// the latter goes for a requested dialog that permits something as well. What cannot be answered
  /// yet shows no mark on a button, and no hint how to close it.
  static constexpr Duration answerDelay = std::chrono::milliseconds(400);
  /// How often new lines of the log are drawn.
  static constexpr Duration logInterval = std::chrono::milliseconds(50);
  /// How long the rest of a key's bytes may take.
  static constexpr Duration keyDelay = std::chrono::milliseconds(50);

  struct Services {
    MainLoop& mainLoop;
    Clock& clock;
    TerminalOutput& output;
  };

  /// What the user does, and what the screen asks for. An unset one is ignored.
  struct Events {
    MenuEvents menu;
    std::function<void(const std::string& identifier)> notificationActivated;
    std::function<void(const std::string& log)> writeLog;  ///< the tray's own log
  };

  /// The services outlive it.
  TerminalScreen(const Services& services, TerminalType type, TerminalCapabilities capabilities);

  Events events;

  void setIcon(StatusIcon icon);
  void setTitle(const std::string& title);
  void setDescription(const std::string& description);
  void setMenu(const Menu& menu);
  void post(const Notification& notification);
  void removeNotification(const std::string& identifier);
  /// Says something in the line for notifications.
  void say(const std::string& text);
  /// Drawn a moment later, together with what follows.
  void appendLog(std::vector<std::string> lines);
  /// Puts a text on the clipboard, if the terminal can.
  void copy(const std::string& text);

  DialogStack::Number presentAlert(const Alert& alert, const std::string& text,
                                   DialogStack::AlertDone done);
  DialogStack::Number presentLog(const LogWindow& window, DialogStack::LogNotify notify);
  void showProgress(DialogStack::Number dialog, const Progress& progress);
  void close(DialogStack::Number dialog);
  /// Ends every dialog as unanswered and draws nothing from now on. For a terminal that was closed.
  void end();

  // What comes from the terminal.
  void receive(std::string_view bytes);
  void resized();
  void drained() { draw(); }

  /// The newest lines of the log that were never on screen.
  [[nodiscard]] std::vector<std::string> unseenLog() const;

 private:
  void changed();
  void changedAfter(Duration delay, Timer& timer);
  void draw();
  void drawMenuScreen(Canvas& canvas);
  void drawStatus(Canvas& canvas, int rows) const;
  void drawNoticeOverLog(Canvas& canvas) const;
  [[nodiscard]] std::string hints(int columns) const;
  void scheduleFading();
  /// The topmost dialog is on screen now.
  void topWasDrawn();
  /// The terminal has become active.
  void guardTopAgain();
  void handleInDialog(const Key& key);
  /// From when on the topmost dialog, of which there is one, can be answered if no further key is
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
  std::optional<DialogStack::Number>
      drawnTop_;  // the topmost dialog when the screen was drawn last
  Instant topSince_{};
  bool topIsGuarded_ = false;
  InputGuard guard_;  // of the topmost dialog
  LogRing log_;
  std::size_t unseenLines_ = 0;
  std::optional<LogBox> logBox_;
  std::string unsent_;  // goes with the next drawing
  bool drawingIsDue_ = false;
  bool ended_ = false;
};

}  // namespace zephyl
