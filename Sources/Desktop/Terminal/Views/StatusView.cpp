#include "Desktop/Terminal/Views/StatusView.hpp"

#include <algorithm>
#include <utility>

#include "Desktop/Terminal/Drawing/DisplayText.hpp"
#include "System/Data/Format.hpp"
#include "System/Data/Text.hpp"

namespace zephyl {

bool StatusView::setIcon(StatusIcon icon) {
  return std::exchange(icon_, icon) != icon;
}

bool StatusView::setTitle(const std::string& title) {
  return std::exchange(title_, title) != title;
}

bool StatusView::setDescription(const std::string& description) {
  return std::exchange(description_, description) != description;
}

void StatusView::draw(Canvas& canvas, bool isRoomy) const {
  canvas.clear({0, 0, 1, canvas.size().columns}, {.reverse = true});
  const int column = canvas.put(0, 1, "Zephyl", {.bold = true, .reverse = true});
  const auto* const icon = icon_ == StatusIcon::busy ? "busy" : "idle";
  canvas.put(0, column, formatText("{}  {}", visible(title_), icon), {.reverse = true});
  if (isRoomy) drawDescription(canvas);
}

void StatusView::drawDescription(Canvas& canvas) const {
  constexpr std::size_t maxLines = 2;
  const int width = canvas.size().columns - 2;
  auto lines =
      displayText::wrapped(displayText::shown(visible(description_), capabilities_), width);
  if (lines.size() > maxLines)
    lines[1] = displayText::cut(lines[1] + " " + lines[2], width, capabilities_);
  for (std::size_t i = 0; i < std::min(maxLines, lines.size()); ++i) {
    canvas.put(1 + static_cast<int>(i), 1, lines[i]);
  }
}

}  // namespace zephyl
