#include "Desktop/Terminal/Views/MenuView.hpp"

#include <algorithm>
#include <utility>

#include "Desktop/Terminal/Drawing/DisplayText.hpp"

namespace zephyl {

namespace {

constexpr int marginColumns = 2;
constexpr int indentColumns = 3;

CellStyle::Color colorOf(DotColor dot) {
  using Color = CellStyle::Color;
  switch (dot) {
    case DotColor::green:
      return Color::green;
    case DotColor::orange:
      return Color::orange;
    case DotColor::red:
      return Color::red;
    case DotColor::grey:
      break;
  }
  return Color::grey;
}

/// Returns a dot, whose shape shows the state if there are no colors.
std::string_view dotOf(DotColor dot, const TerminalCapabilities& capabilities) {
  if (capabilities.colors) return capabilities.symbols().dot;
  switch (dot) {
    case DotColor::green:
      return capabilities.symbols().dot;
    case DotColor::orange:
      return capabilities.unicode ? "◐" : "~";
    case DotColor::red:
      return capabilities.unicode ? "✗" : "x";
    case DotColor::grey:
      break;
  }
  return capabilities.unicode ? "○" : "o";
}

std::string shortcutOf(const MenuEntry& entry) {
  if (entry.shortcut.empty()) return {};
  std::string letter = entry.shortcut;
  if (letter.front() >= 'a' && letter.front() <= 'z') {
    letter.front() = static_cast<char>(letter.front() - 'a' + 'A');
  }
  return "Ctrl-" + letter;
}

}  // namespace

void MenuView::setMenu(Menu menu) {
  menu_ = std::move(menu);
  rebuildList();
  if (chosen_ && !chosenRow()) chosen_.reset();
  if (!hasBeenShown_) moveToEnd(-1);
}

void MenuView::list(const Menu& menu, const Path& above) {
  for (const auto& entry : menu) {
    Path path = above;
    path.push_back(entry.key);
    const bool open = !entry.submenu.empty() && open_.contains(path);
    rows_.push_back({.entry = &entry, .path = path, .open = open});
    if (open) list(entry.submenu, path);
  }
}

void MenuView::rebuildList() {
  rows_.clear();
  list(menu_, {});
  std::erase_if(open_, [this](const Path& path) {
    return std::ranges::none_of(rows_,
                                [&](const Row& row) { return row.open && row.path == path; });
  });
  if (const auto row = chosenRow()) lastRow_ = *row;
}

std::optional<std::size_t> MenuView::chosenRow() const {
  if (!chosen_) return std::nullopt;
  const auto found = std::ranges::find(rows_, *chosen_, &Row::path);
  if (found == rows_.end() || !found->canBeChosen()) return std::nullopt;
  return static_cast<std::size_t>(found - rows_.begin());
}

/// Returns the first row that can be chosen, from `from` in the direction of `step`.
std::optional<std::size_t> MenuView::nextChoosable(std::size_t from, int step) const {
  for (auto row = static_cast<std::ptrdiff_t>(from); row >= 0 && row < std::ssize(rows_);
       row += step) {
    if (rows_[static_cast<std::size_t>(row)].canBeChosen()) return static_cast<std::size_t>(row);
  }
  return std::nullopt;
}

void MenuView::choose(std::size_t row) {
  chosen_ = rows_[row].path;
  lastRow_ = row;
}

void MenuView::move(int step) {
  if (rows_.empty()) return;
  const auto last = rows_.size() - 1;
  const auto current = chosenRow();
  std::optional<std::size_t> next;
  if (!current) {
    const auto near = std::min(lastRow_, last);
    next = nextChoosable(near, step);
    if (!next) next = nextChoosable(near, -step);
  } else if (step > 0 ? *current < last : *current > 0) {
    next = nextChoosable(step > 0 ? *current + 1 : *current - 1, step);
  }
  if (next) choose(*next);
}

void MenuView::moveToEnd(int step) {
  if (rows_.empty()) return;
  hasBeenShown_ = true;
  if (const auto row = nextChoosable(step < 0 ? 0 : rows_.size() - 1, -step)) choose(*row);
}

void MenuView::movePage(int step) {
  for (int i = 1; i < std::max(area_.rows, 2); ++i) move(step);
}

MenuView::Outcome MenuView::handle(const Key& key) {
  using Kind = Key::Kind;
  const auto current = chosenRow();
  const auto atChosen = [&](Outcome (MenuView::*act)(std::size_t)) {
    return current ? (this->*act)(*current) : Outcome{.handled = true};
  };
  if (key.kind == Kind::control) {
    const auto found = std::ranges::find_if(
        rows_, [&](const Row& row) { return row.entry->shortcut == key.text; });
    if (found == rows_.end() || !found->canBeChosen()) return {};
    return activate(static_cast<std::size_t>(found - rows_.begin()));
  }
  if (key.kind == Kind::enter || key.is(" ")) return atChosen(&MenuView::activate);
  if (key.kind == Kind::left || key.kind == Kind::escape) return atChosen(&MenuView::leave);
  if (key.kind == Kind::press) return press(key);
  if (key.kind == Kind::right) {
    if (current && rows_[*current].hasSubmenu()) return setOpen(*current, true);
  } else if (key.kind == Kind::up || key.kind == Kind::wheelUp || key.is("k")) {
    move(-1);
  } else if (key.kind == Kind::down || key.kind == Kind::wheelDown || key.is("j")) {
    move(1);
  } else if (key.kind == Kind::home || key.is("g")) {
    moveToEnd(-1);
  } else if (key.kind == Kind::end || key.is("G")) {
    moveToEnd(1);
  } else if (key.kind == Kind::pageUp || key.kind == Kind::pageDown) {
    movePage(key.kind == Kind::pageUp ? -1 : 1);
  } else {
    return {};
  }
  return {.handled = true};
}

MenuView::Outcome MenuView::activate(std::size_t row) {
  choose(row);
  if (rows_[row].hasSubmenu()) return setOpen(row, !rows_[row].open);
  return {.handled = true, .chosen = rows_[row].entry->action};
}

MenuView::Outcome MenuView::setOpen(std::size_t row, bool open) {
  const bool opened = open && !rows_[row].open;
  if (open) {
    open_.insert(rows_[row].path);
  } else {
    open_.erase(rows_[row].path);
  }
  rebuildList();
  return {.handled = true, .opened = opened};
}

/// Closes the row's submenu, or the submenu that contains the row.
MenuView::Outcome MenuView::leave(std::size_t row) {
  if (rows_[row].open) return setOpen(row, false);
  if (rows_[row].depth() == 0) return {.handled = true};
  chosen_->pop_back();
  if (const auto parent = chosenRow()) return setOpen(*parent, false);
  return {.handled = true};
}

MenuView::Outcome MenuView::press(const Key& key) {
  const auto line = static_cast<std::size_t>(key.row - area_.row);
  if (!area_.contains(key.row, key.column) || line >= rowOfLine_.size()) return {};
  const auto row = rowOfLine_[line];
  if (row >= rows_.size() || !rows_[row].canBeChosen()) return {.handled = true};
  return activate(row);
}

std::vector<MenuView::Line> MenuView::lines(int columns,
                                            const TerminalCapabilities& capabilities) const {
  std::vector<Line> all;
  for (std::size_t index = 0; index < rows_.size(); ++index) {
    const Row& row = rows_[index];
    const int indent = marginColumns + indentColumns * static_cast<int>(row.depth());
    std::string title = row.entry->title;
    if (row.hasSubmenu()) {
      title.append(" ").append(row.open ? capabilities.symbols().openMenu
                                        : capabilities.symbols().closedMenu);
    }
    const int dot = row.entry->dot ? 2 : 0;
    const int shortcut = displayText::width(shortcutOf(*row.entry));
    bool first = true;
    for (auto& text : displayText::wrapped(
             title, std::max(columns - indent - dot - (shortcut > 0 ? shortcut + 1 : 0), 8))) {
      all.push_back({.row = index, .first = std::exchange(first, false), .text = std::move(text)});
    }
  }
  return all;
}

/// Shows the chosen row with its context: rows at the ends of the list that cannot be chosen are
/// shown together with the nearest row that can.
void MenuView::scrollTo(const std::vector<Line>& lines, int height) {
  const int count = static_cast<int>(lines.size());
  if (const auto chosen = chosenRow()) {
    const auto lineOf = [&](std::size_t row) {
      return static_cast<int>(std::ranges::find(lines, row, &Line::row) - lines.begin());
    };
    const bool isFirst = *chosen == 0 || !nextChoosable(*chosen - 1, -1);
    const bool isLast = *chosen + 1 >= rows_.size() || !nextChoosable(*chosen + 1, 1);
    const int top = isFirst ? 0 : lineOf(*chosen);
    const int bottom = isLast ? count : lineOf(*chosen + 1);
    if (bottom > scroll_ + height) scroll_ = bottom - height;
    if (top < scroll_) scroll_ = top;
    if (lineOf(*chosen) >= scroll_ + height) scroll_ = lineOf(*chosen) + 1 - height;
  }
  scroll_ = std::clamp(scroll_, 0, std::max(count - height, 0));
}

void MenuView::draw(Canvas& canvas, const Area& area) {
  area_ = area;
  const auto all = lines(area.columns, canvas.capabilities());
  scrollTo(all, area.rows);
  rowOfLine_.clear();
  for (int row = 0; row < area.rows; ++row) {
    const int index = scroll_ + row;
    if (index >= std::ssize(all)) break;
    const Line& line = all[static_cast<std::size_t>(index)];
    rowOfLine_.push_back(line.row);
    drawLine(canvas, area, area.row + row, line);
  }
  const int right = area.column + area.columns - 1;
  const bool more = scroll_ + area.rows < std::ssize(all);
  if (scroll_ > 0) canvas.put(area.row, right, canvas.symbols().moreAbove, {.bold = true});
  if (more) {
    canvas.put(area.row + area.rows - 1, right, canvas.symbols().moreBelow, {.bold = true});
  }
}

void MenuView::drawLine(Canvas& canvas, const Area& area, int row, const Line& line) const {
  const Row& shown = rows_[line.row];
  const MenuEntry& entry = *shown.entry;
  int column = area.column + marginColumns + indentColumns * static_cast<int>(shown.depth());
  if (entry.kind == MenuEntry::Kind::separator) {
    return canvas.rule(row, column, area.column + area.columns - marginColumns - column,
                       {.dim = true});
  }
  const bool isChosen = chosen_ && shown.path == *chosen_ && shown.canBeChosen();
  const CellStyle style{.bold = entry.dot.has_value(),
                        .dim = !shown.canBeChosen() && !entry.dot,
                        .reverse = isChosen};
  if (isChosen) {
    canvas.clear({row, area.column, 1, area.columns}, style);
    if (line.first) canvas.put(row, area.column, canvas.symbols().chosen, style);
  }
  if (entry.dot && line.first) {
    canvas.put(row, column, dotOf(*entry.dot, canvas.capabilities()),
               {.color = colorOf(*entry.dot), .bold = true, .reverse = isChosen});
  }
  if (entry.dot) column += 2;
  canvas.put(row, column, line.text, style);
  const auto shortcut = shortcutOf(entry);
  if (shortcut.empty() || !line.first) return;
  canvas.put(row, area.column + area.columns - displayText::width(shortcut) - 1, shortcut,
             {.dim = !isChosen, .reverse = isChosen});
}

}  // namespace zephyl
