#include "ZephylTray/Actions/LogWindows.hpp"

#include "System/Concurrency/Weakly.hpp"
#include "System/Data/Text.hpp"
#include "ZephylTray/Actions/LogExcerpt.hpp"

namespace zephyl {

void LogWindows::presentLogWindow(LogWindow window, const std::vector<std::string>& log) {
  std::vector<std::string> lines;
  lines.reserve(log.size());
  for (const auto& line : log) lines.push_back(visible(line));
  currentLogText_ = joined(lines, "\n");
  logWindow_.reset();
  window.shownText = logExcerpt(log);
  window.fullText = currentLogText_;
  logWindow_ = port_.present(
      window, weakly(this, [](LogWindows& self, LogWindowEvent event) { self.handle(event); }));
}

void LogWindows::handle(LogWindowEvent event) {
  switch (event) {
    case LogWindowEvent::openInCursor:
      return openLogIn(Editor::cursor);
    case LogWindowEvent::openInVSCode:
      return openLogIn(Editor::vsCode);
    case LogWindowEvent::openInTextEdit:
      return openLogIn(Editor::textEdit);
    case LogWindowEvent::closed:
      logWindow_.reset();
  }
}

void LogWindows::openLogIn(Editor editor) {
  if (const auto path = port_.write(currentLogText_)) port_.open(*path, editor);
}

}  // namespace zephyl
