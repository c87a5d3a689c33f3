#include <fmt/ranges.h>

#include "System/Data/Format.hpp"
#include "System/Data/Text.hpp"
#include "System/Files/Directories.hpp"
#include "System/Files/Files.hpp"
#include "ZephylTray/Actions/LogExcerpt.hpp"
#include "ZephylTray/App/AppDelegate.hpp"

namespace zephyl {

/// Control characters stay in the ring, and in nothing that leaves it: neither the window, nor the
/// clipboard, nor the file.
void AppDelegate::presentLogWindow(LogWindow window, const std::vector<std::string>& log) {
  std::vector<std::string> lines;
  lines.reserve(log.size());
  for (const auto& line : log) lines.push_back(visible(line));
  currentLogText_ = formatText("{}", fmt::join(lines, "\n"));
  logWindow_.reset();
  window.shownText = logExcerpt(log);
  window.fullText = currentLogText_;
  logWindow_ = dialogs_.presentLogWindow(
      window, weakly([](AppDelegate& self, LogWindowEvent event) { self.handle(event); }));
}

void AppDelegate::handle(LogWindowEvent event) {
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

void AppDelegate::openLogIn(Editor editor) {
  if (const auto path = writeLogToTempFile()) desktop_.openFile(*path, editor);
}

std::optional<std::string> AppDelegate::writeLogToTempFile() const {
  auto path =
      joinPath(directories::temporary(),
               formatText("zephyl-agent-log-{}.log", fileTimestamp(runtime_.clock.calendarNow())));
  if (!replaceFile(path, currentLogText_, Durability::unflushed)) return std::nullopt;
  return path;
}

}  // namespace zephyl
