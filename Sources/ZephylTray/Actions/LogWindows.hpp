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

/// Shows logs in a window, one at a time, and opens the last shown log in an editor. Control
/// characters are made visible wherever text leaves the log: on screen, on the clipboard and in the
/// file.
///
/// Main thread only. Owned by a `shared_ptr`. The window holds it weakly.
class LogWindows : public std::enable_shared_from_this<LogWindows> {
 public:
  struct Port {
    /// As `Dialogs::presentLogWindow`.
    std::function<Dialogs::Handle(const LogWindow&, std::function<void(LogWindowEvent)>)> present;
    /// Writes a text to a new file and returns its path, or nullopt on failure.
    std::function<std::optional<std::string>(const std::string& text)> write;
    std::function<void(const std::string& path, Editor editor)> open;
  };

  explicit LogWindows(Port port) : port_(std::move(port)) {}

  /// Shows the lines of `log` in `window` and sets the window's own texts about the log. Closes the
  /// open window.
  void presentLogWindow(LogWindow window, const std::vector<std::string>& log);

 private:
  void handle(LogWindowEvent event);
  void openLogIn(Editor editor);

  const Port port_;
  Dialogs::Handle logWindow_;
  std::string currentLogText_;  // the whole text of the last shown log
};

}  // namespace zephyl
