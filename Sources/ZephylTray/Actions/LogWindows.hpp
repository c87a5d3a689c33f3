#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Desktop/Desktop.hpp"
#include "Desktop/Dialogs.hpp"

namespace zephyl {

/// Shows logs in a window, one at a time, and opens the log that was shown last in an editor.
/// Control characters are made visible in everything that leaves the log: on screen, on the
/// clipboard and in the file.
///
/// Main thread only. Owned by a `shared_ptr`; the window holds it weakly.
class LogWindows : public std::enable_shared_from_this<LogWindows> {
 public:
  struct Port {
    /// As `Dialogs::presentLogWindow`.
    std::function<Dialogs::Handle(const LogWindow&, std::function<void(LogWindowEvent)>)> present;
    /// Writes a text to a file of its own and returns its path, or nullopt if that failed.
    std::function<std::optional<std::string>(const std::string& text)> write;
    std::function<void(const std::string& path, Editor editor)> open;
  };

  explicit LogWindows(Port port) : port_(std::move(port)) {}

  /// Shows the lines of `log` in `window`, whose own texts about the log are replaced. Closes the
  /// window that is open.
  void presentLogWindow(LogWindow window, const std::vector<std::string>& log);

 private:
  void handle(LogWindowEvent event);
  void openLogIn(Editor editor);

  const Port port_;
  Dialogs::Handle logWindow_;
  std::string currentLogText_;  // the whole log that was shown last
};

}  // namespace zephyl
