#include <fmt/format.h>
#include <fmt/ranges.h>

#include "System/Directories.hpp"
#include "System/Files.hpp"
#include "ZephylTray/AppDelegate.hpp"
#include "ZephylTray/LogExcerpt.hpp"

namespace zephyl {

void AppDelegate::presentLogWindow(const std::string& title, const std::string& message,
                                   const std::vector<std::string>& log) {
  currentLogText_ = fmt::to_string(fmt::join(log, "\n"));
  logWindow_.reset();
  logWindow_ = dialogs_.presentLogWindow(
      {.title = title,
       .message = message,
       .shownText = logExcerpt(log),
       .fullText = currentLogText_},
      weakly([](AppDelegate& self, LogWindowEvent event) { self.handle(event); }));
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
               fmt::format("zephyl-agent-log-{}.log", fileTimestamp(runtime_.clock.calendarNow())));
  if (!replaceFile(path, currentLogText_, Durability::unflushed)) return std::nullopt;
  return path;
}

}  // namespace zephyl
