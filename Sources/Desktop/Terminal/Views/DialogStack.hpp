#pragma once

#include <functional>
#include <list>
#include <optional>
#include <string>
#include <utility>

#include "Desktop/Dialogs.hpp"
#include "Desktop/Terminal/Views/AlertBox.hpp"
#include "Desktop/Terminal/Views/LogBox.hpp"

namespace zephyl {

/// The open dialogs. Alerts are shown one after the other: first those that permit something,
/// because nothing may hold back a request, then the others, each in the order of their addition.
/// Logs are shown below them, newest on top. Main thread only.
class DialogStack {
 public:
  using Number = unsigned;  ///< identifies a dialog; never reused
  using AlertDone = std::function<void(std::optional<AlertAnswer>)>;
  using LogNotify = std::function<void(LogWindowEvent)>;

  Number addAlert(const Alert& alert, const TerminalCapabilities& capabilities,
                  const std::string& text, AlertDone done);
  Number addLog(const LogWindow& window, const TerminalCapabilities& capabilities,
                LogNotify notify);
  /// Updates the progress bar of an alert. Returns whether the alert is on screen.
  bool showProgress(Number number, const Progress& progress);
  /// Closes a dialog without an answer. Does nothing if it is not open.
  void close(Number number);
  /// Ends all dialogs as not shown.
  void failAll();

  [[nodiscard]] bool hasAlert() const { return !alerts_.empty(); }
  [[nodiscard]] bool hasLog() const { return !logs_.empty(); }
  [[nodiscard]] std::size_t waiting() const { return alerts_.empty() ? 0 : alerts_.size() - 1; }
  /// Returns the dialog that receives the keys, or nullopt if none is open.
  [[nodiscard]] std::optional<Number> top() const;
  /// Returns whether the topmost dialog, which must exist, responds to an action of the user.
  [[nodiscard]] bool topIsRequestedByUser() const;
  /// Returns whether a button of the topmost dialog permits something.
  [[nodiscard]] bool topPermitsSomething() const;

  /// Passes a key to the topmost dialog, which must exist. Calls `copy` with a text for the
  /// clipboard.
  void handle(const Key& key, bool mayAnswer, const std::function<void(const std::string&)>& copy);
  /// `mayAnswer` has the same meaning as in `handle`.
  void draw(Canvas& canvas, bool mayAnswer);

 private:
  struct OpenAlert {
    OpenAlert(Number ownNumber, const Alert& alert, const TerminalCapabilities& capabilities,
              AlertDone whenDone)
        : number(ownNumber), box(alert, capabilities), done(std::move(whenDone)) {}

    Number number;
    AlertBox box;
    AlertDone done;
  };
  struct OpenLog {
    OpenLog(Number ownNumber, const LogWindow& shown, const TerminalCapabilities& capabilities,
            LogNotify whenNotified)
        : number(ownNumber),
          window(shown),
          box(shown.title, shown.message, capabilities),
          notify(std::move(whenNotified)) {}

    Number number;
    LogWindow window;
    LogBox box;
    LogNotify notify;
    bool showsAll = false;
  };

  void handleAlert(const Key& key, bool mayAnswer);
  void handleLog(const Key& key, bool mayAnswer,
                 const std::function<void(const std::string&)>& copy);
  static void showLog(OpenLog& log);

  Number last_ = 0;
  std::list<OpenAlert> alerts_;
  std::list<OpenLog> logs_;
};

}  // namespace zephyl
