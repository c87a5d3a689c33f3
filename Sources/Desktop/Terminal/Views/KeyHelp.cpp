#include "Desktop/Terminal/Views/KeyHelp.hpp"

#include <string>
#include <string_view>

#include "Desktop/Terminal/Drawing/DisplayText.hpp"
#include "System/Data/Format.hpp"

namespace zephyl::keyHelp {

namespace {

constexpr std::string_view allKeys =
    "Arrows, PgUp, Home …     move\n"
    "Enter                    choose; open or close a submenu\n"
    "Right, Left              open, close a submenu\n"
    "Ctrl-O, Ctrl-Q           the entry with this shortcut\n"
    "n                        the action of a notification\n"
    "l                        show the log\n"
    "Ctrl-L                   redraw the screen\n"
    "Ctrl-C                   end the tray\n"
    "\n"
    "In a dialog, Tab moves between buttons, Enter presses the marked button, and Escape is the "
    "safe answer. In a log, c copies and w writes to a file.\n"
    "\n"
    "To select text with the mouse, hold Shift. Closing the terminal does not end the tray.";

}  // namespace

void draw(Canvas& canvas, const Area& area, std::size_t unseenLogLines) {
  const auto& capabilities = canvas.capabilities();
  const std::string news = unseenLogLines > 0 ? formatText(" ({} new)", unseenLogLines) : "";
  std::string hints = displayText::shown(
      formatText("↑↓ move  Enter choose  l log{}  ? help  Ctrl-C quit", news), capabilities);
  if (displayText::width(hints) > area.columns) hints = formatText("? help  l log{}", news);
  canvas.put(area.row, area.column, displayText::cut(hints, area.columns, capabilities),
             {.dim = true});
}

Alert alert(const TerminalCapabilities& capabilities) {
  return {.heading = "Keys",
          .explanation = displayText::shown(allKeys, capabilities),
          .buttons = {"Close"},
          .requestedByUser = true};
}

}  // namespace zephyl::keyHelp
