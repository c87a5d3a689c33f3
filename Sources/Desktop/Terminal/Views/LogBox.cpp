#include "Desktop/Terminal/Views/LogBox.hpp"

#include <utility>

#include "Desktop/Terminal/Drawing/DisplayText.hpp"
#include "System/Data/Text.hpp"

namespace zephyl {

LogBox::LogBox(std::string_view title, std::string_view message,
               const TerminalCapabilities& capabilities)
    : capabilities_(capabilities),
      title_(displayText::shown(visible(title), capabilities)),
      message_(displayText::shown(visibleLines(message), capabilities)) {}

void LogBox::setText(const std::vector<std::string>& lines) {
  std::vector<std::string> shown;
  shown.reserve(lines.size());
  for (const auto& line : lines)
    shown.push_back(displayText::shown(visibleLines(line), capabilities_));
  text_.setLines(std::move(shown));
}

LogBox::Outcome LogBox::handle(const Key& key, bool mayClose) {
  using Kind = Key::Kind;
  if (key.kind == Kind::escape || key.kind == Kind::enter || key.is("q")) {
    return mayClose ? Outcome::close : Outcome::none;
  }
  if (key.is("c")) return Outcome::copy;
  if (key.is("w")) return Outcome::write;
  if (key.is("f") && !toggle_.empty()) return Outcome::toggle;
  text_.handle(key);
  return Outcome::none;
}

std::string LogBox::hints(int columns) const {
  const std::string toggle = toggle_.empty() ? "" : "  f " + toggle_;
  std::string all = displayText::shown("↑↓ scroll", capabilities_) + toggle +
                    "  c copy all  w write to a file  Esc close";
  if (displayText::width(all) <= columns) return all;
  return "Esc close  c copy  w write";
}

void LogBox::draw(Canvas& canvas, const Area& area, bool mayClose) {
  int row = area.row;
  const int columns = area.columns - 2;
  canvas.clear({row, area.column, 1, area.columns}, {.reverse = true});
  canvas.put(row++, area.column + 1, displayText::cut(title_, columns, capabilities_),
             {.bold = true, .reverse = true});
  if (!message_.empty()) {
    for (const auto& line : displayText::wrapped(message_, columns)) {
      canvas.put(row++, area.column + 1, line, {.color = CellStyle::Color::red, .bold = true});
    }
  }
  if (area.rows > 8) ++row;
  const int last = area.row + area.rows - 1;
  text_.draw(canvas, {row, area.column + 1, last - row, area.columns - 1});
  if (!mayClose) return;
  canvas.put(last, area.column + 1, displayText::cut(hints(columns), columns, capabilities_),
             {.dim = true});
}

}  // namespace zephyl
