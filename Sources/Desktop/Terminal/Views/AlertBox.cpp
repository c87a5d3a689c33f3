#include "Desktop/Terminal/Views/AlertBox.hpp"

#include <algorithm>
#include <utility>

#include "Desktop/Terminal/Drawing/DisplayText.hpp"
#include "System/Data/Text.hpp"

namespace zephyl {

namespace {

constexpr int maxColumns = 72;
constexpr int buttonGap = 2;
constexpr int brackets = 4;  ///< around a button's title
constexpr int minBarColumns = 8;
constexpr int maxBarColumns = 40;

std::string buttonLabel(const std::string& title, bool chosen,
                        const TerminalCapabilities& capabilities) {
  return (chosen ? "[" + std::string(capabilities.symbols().chosen) : "[ ") + title + " ]";
}

Alert asShown(Alert alert, const TerminalCapabilities& capabilities) {
  const auto show = [&](std::string& text) {
    text = displayText::shown(visibleLines(text), capabilities);
  };
  show(alert.heading);
  show(alert.explanation);
  for (auto& button : alert.buttons) show(button);
  if (alert.progress) show(alert.progress->text);
  return alert;
}

std::vector<std::string> linesOf(const Alert& alert) {
  std::vector<std::string> lines{alert.explanation};
  return alert.explanation.empty() ? std::vector<std::string>{} : lines;
}

}  // namespace

AlertBox::AlertBox(Alert alert, const TerminalCapabilities& capabilities)
    : capabilities_(capabilities),
      alert_(asShown(std::move(alert), capabilities)),
      field_(alert_.textField ? alert_.textField->placeholder : ""),
      focus_(alert_.textField ? alert_.buttons.size() : 0) {
  text_.setLines(linesOf(alert_));
}

void AlertBox::showProgress(const Progress& progress) {
  if (!alert_.progress) return;
  alert_.progress = {progress.fraction, displayText::shown(visible(progress.text), capabilities_)};
}

std::optional<AlertAnswer> AlertBox::handle(const Key& key, bool mayAnswer) {
  using Kind = Key::Kind;
  if (key.kind == Kind::escape) {
    return mayAnswer ? std::optional(answer(alert_.safeButton)) : std::nullopt;
  }
  if (key.kind == Kind::enter || (key.is(" ") && !fieldHasFocus())) {
    const std::size_t button = fieldHasFocus() ? 0 : focus_;
    return mayAnswer && isEnabled(button) ? std::optional(answer(button)) : std::nullopt;
  }
  if (key.kind == Kind::press) return handlePress(key, mayAnswer);
  if (fieldHasFocus() && field_.handle(key)) return std::nullopt;
  if (key.kind == Kind::tab || key.kind == Kind::right) {
    moveFocus(true, key.kind == Kind::right);
  } else if (key.kind == Kind::backTab || key.kind == Kind::left) {
    moveFocus(false, key.kind == Kind::left);
  } else {
    text_.handle(key);
  }
  return std::nullopt;
}

std::optional<AlertAnswer> AlertBox::handlePress(const Key& key, bool mayAnswer) {
  for (std::size_t index = 0; index < buttonAreas_.size(); ++index) {
    const bool isHit = buttonAreas_[index].contains(key.row, key.column);
    if (mayAnswer && isHit && isEnabled(index)) return answer(index);
  }
  return std::nullopt;
}

/// The focused stop is the last candidate, so the search terminates.
void AlertBox::moveFocus(bool forwards, bool withArrow) {
  const auto mayHaveFocus = [&](std::size_t stop) {
    return !permits(stop) || (!withArrow && isEnabled(stop));
  };
  std::size_t stop = focus_;
  do {
    stop = (stop + (forwards ? 1 : stops() - 1)) % stops();
  } while (stop != focus_ && !mayHaveFocus(stop));
  focus_ = stop;
}

bool AlertBox::permits(std::size_t button) const {
  return std::ranges::find(alert_.permittingButtons, button) != alert_.permittingButtons.end();
}

bool AlertBox::isEnabled(std::size_t button) const {
  return !permits(button) || (messageWasDrawn_ && text_.endWasDrawn());
}

/// Returns the buttons' areas relative to the inside of the box: in one row if they fit, otherwise
/// in a column.
std::vector<Area> AlertBox::placeButtons(int columns) const {
  std::vector<Area> places;
  int column = 0;
  for (const auto& title : alert_.buttons) {
    const int width = displayText::width(buttonLabel(title, false, {}));
    places.push_back({0, column, 1, width});
    column += width + buttonGap;
  }
  if (column - buttonGap <= columns) return places;
  for (std::size_t index = 0; index < places.size(); ++index) {
    places[index].row = static_cast<int>(index);
    places[index].column = 0;
  }
  return places;
}

AlertBox::Layout AlertBox::computeLayout(ScreenSize size) {
  const int columns = std::min(size.columns - (size.columns > 30 ? 4 : 0), maxColumns);
  const int inner = columns - 4;
  Layout layout{.message = displayText::wrapped(alert_.heading, inner),
                .buttons = placeButtons(inner)};
  layout.buttonRows = layout.buttons.empty() ? 0 : layout.buttons.back().row + 1;
  const int lines = text_.rowsAt(inner - 1);
  const int needed = 2 + static_cast<int>(layout.message.size()) + layout.buttonRows +
                     (alert_.textField ? 2 : 0) + (alert_.progress ? 2 : 0);
  // On a small screen the text has priority over the space around it.
  layout.gap = needed + std::min(lines, 3) + 2 <= size.rows ? 1 : 0;
  layout.textRows = std::min(lines, std::max(size.rows - needed - 2 * layout.gap, 1));
  const int rows = std::min(needed + layout.textRows + 2 * layout.gap, size.rows);
  layout.box = {(size.rows - rows) / 2, (size.columns - columns) / 2, rows, columns};
  return layout;
}

void AlertBox::draw(Canvas& canvas, bool mayAnswer) {
  const auto layout = computeLayout(canvas.size());
  drawFrame(canvas, layout.box);
  const Area inside{layout.box.row + 1, layout.box.column + 2, layout.box.rows - 2,
                    layout.box.columns - 4};
  drawText(canvas, inside, layout);
  int row = inside.row + static_cast<int>(layout.message.size()) + layout.textRows + 2 * layout.gap;
  if (alert_.textField) {
    drawField(canvas, inside, row);
    row += 2;
  }
  if (alert_.progress) drawProgress(canvas, {row, inside.column, 1, inside.columns});
  drawButtons(canvas,
              {inside.row + inside.rows - layout.buttonRows, inside.column, layout.buttonRows,
               inside.columns},
              layout.buttons, mayAnswer);
  drawHint(canvas, layout.box);
}

/// On a low screen, field, bar and buttons cover rows of the text, which then does not count as
/// shown.
void AlertBox::drawText(Canvas& canvas, const Area& inside, const Layout& layout) {
  int row = inside.row;
  for (const auto& line : layout.message) canvas.put(row++, inside.column, line, {.bold = true});
  const int others = layout.buttonRows + (alert_.textField ? 2 : 0) + (alert_.progress ? 2 : 0);
  const int free = inside.row + inside.rows - others;  // the first row below the text
  messageWasDrawn_ = messageWasDrawn_ || row <= free;
  row += layout.gap;
  const int covered = std::clamp(row + layout.textRows - free, 0, layout.textRows);
  text_.draw(canvas, {row, inside.column, layout.textRows, inside.columns}, covered);
}

void AlertBox::drawHint(Canvas& canvas, const Area& box) const {
  if (alert_.permittingButtons.empty() || isEnabled(alert_.permittingButtons.front())) return;
  const std::string hint = displayText::shown(" Scroll to the end (↓) to allow ", capabilities_);
  canvas.put(box.row + box.rows - 1, box.column + 2,
             displayText::cut(hint, box.columns - 4, capabilities_), {.bold = true});
}

void AlertBox::drawFrame(Canvas& canvas, const Area& box) const {
  // A background too narrow to be useful is cleared.
  constexpr int minBackgroundColumns = 12;
  const int margin = box.column < minBackgroundColumns ? box.column : 2;
  const bool critical = alert_.style == Alert::Style::critical;
  canvas.hideCursor();
  canvas.clear({box.row, box.column - margin, box.rows, box.columns + 2 * margin + 1});
  canvas.frame(box, {.color = critical ? CellStyle::Color::red : CellStyle::Color::normal,
                     .bold = critical});
}

void AlertBox::drawField(Canvas& canvas, const Area& inside, int row) const {
  const int right = inside.column + inside.columns - 1;
  canvas.put(row, inside.column, canvas.symbols().chosen, {.bold = fieldHasFocus()});
  canvas.rule(row + 1, inside.column, inside.columns, {.dim = true});
  field_.draw(canvas, {row, inside.column + 2, 1, right - inside.column - 2}, fieldHasFocus());
}

/// Draws the bar if there is enough space and a known fraction, and the text beside it.
void AlertBox::drawProgress(Canvas& canvas, const Area& row) const {
  const auto& progress = *alert_.progress;
  const int room = row.columns - displayText::width(progress.text) - 1;
  const int length = progress.fraction && room >= minBarColumns ? std::min(room, maxBarColumns) : 0;
  const double fraction = std::clamp(progress.fraction.value_or(0), 0.0, 1.0);
  const int filled = static_cast<int>(fraction * length);
  for (int place = 0; place < length; ++place) {
    const auto& symbols = canvas.symbols();
    canvas.put(row.row, row.column + place, place < filled ? symbols.filled : symbols.empty);
  }
  const int words = length > 0 ? length + 1 : 0;
  canvas.putWithin(row.row, row.column + words, row.columns - words, progress.text);
}

void AlertBox::drawButtons(Canvas& canvas, const Area& inside, const std::vector<Area>& places,
                           bool mayAnswer) {
  buttonAreas_ = places;
  canvas.clear(inside);  // on a low screen, text may be here
  for (std::size_t index = 0; index < places.size(); ++index) {
    auto& area = buttonAreas_[index];
    area.row += inside.row;
    area.column += inside.column;
    area.columns = std::min(area.columns, inside.columns);
    // While the text field has the focus, Enter means the first button.
    const bool chosen = mayAnswer && (focus_ == index || (fieldHasFocus() && index == 0));
    const auto title =
        displayText::cut(alert_.buttons[index], area.columns - brackets, canvas.capabilities());
    canvas.put(area.row, area.column, buttonLabel(title, chosen, canvas.capabilities()),
               {.bold = chosen,
                .dim = !mayAnswer || !isEnabled(index),
                .reverse = mayAnswer && focus_ == index});
  }
}

}  // namespace zephyl
