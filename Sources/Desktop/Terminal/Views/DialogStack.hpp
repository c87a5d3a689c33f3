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

/// The dialogs that are open. Alerts are asked one after the other, in the order in which they
/// came, so that none takes the place of another under the user's fingers; logs lie below them,
/// the newest on top. Main thread only.
class DialogStack {
 public:
  using Number = unsigned;  ///< of a dialog; never used again
  using AlertDone = std::function<void(std::optional<AlertAnswer>)>;
  using LogNotify = std::function<void(LogWindowEvent)>;

  Number addAlert(const Alert& alert, const TerminalCapabilities& capabilities,
                  const std::string& text, AlertDone done);
  Number addLog(const LogWindow& window, const TerminalCapabilities& capabilities,
                LogNotify notify);
  /// Whether it has a bar that is on screen now, which has moved.
  bool showProgress(Number number, const Progress& progress);
  /// Without an answer. Nothing when it is gone already.
  void close(Number number);
  /// Answers everything as not shown.
  void failAll();

  [[nodiscard]] bool hasAlert() const { return !alerts_.empty(); }
  [[nodiscard]] bool hasLog() const { return !logs_.empty(); }
  [[nodiscard]] std::size_t waiting() const { return alerts_.empty() ? 0 : alerts_.size() - 1; }
  /// The dialog that gets the keys; empty if nothing is open.
  [[nodiscard]] std::optional<Number> top() const;
  /// Whether the topmost dialog, of which there is one, answers something that the user did.
  [[nodiscard]] bool topIsRequestedByUser() const;
  /// Whether a button of the topmost dialog permits something.
  [[nodiscard]] bool topPermitsSomething() const;

  /// For the topmost dialog, of which there is one. `copy` is given a text for the clipboard.
  void handle(const Key& key, bool mayAnswer, const std::function<void(const std::string&)>& copy);
  /// `mayAnswer`: as in `handle`.
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
