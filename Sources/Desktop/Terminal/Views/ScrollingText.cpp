#include "Desktop/Terminal/Views/ScrollingText.hpp"

#include <algorithm>
#include <utility>

#include "Desktop/Terminal/Drawing/DisplayText.hpp"

namespace zephyl {

void ScrollingText::setLines(std::vector<std::string> lines) {
  lines_ = std::move(lines);
  wrappedAt_ = 0;
}

bool ScrollingText::handle(const Key& key) {
  using Kind = Key::Kind;
  constexpr int wheelRows = 3;
  if (key.kind == Kind::up || key.is("k")) {
    scrollBy(-1);
  } else if (key.kind == Kind::down || key.is("j")) {
    scrollBy(1);
  } else if (key.kind == Kind::wheelUp || key.kind == Kind::wheelDown) {
    scrollBy(key.kind == Kind::wheelUp ? -wheelRows : wheelRows);
  } else if (key.kind == Kind::pageUp) {
    scrollBy(1 - height_);
  } else if (key.kind == Kind::pageDown || key.is(" ")) {
    scrollBy(height_ - 1);
  } else if (key.kind == Kind::home || key.is("g")) {
    scrollBy(-furthest());
  } else if (key.kind == Kind::end || key.is("G")) {
    scrollBy(furthest());
  } else {
    return false;
  }
  return true;
}

int ScrollingText::furthest() const {
  return std::max(static_cast<int>(wrapped_.size()) - height_, 0);
}

void ScrollingText::scrollBy(int rows) {
  top_ = std::clamp(top_ + rows, 0, furthest());
  follows_ = rows > 0 && top_ == furthest();
}

int ScrollingText::rowsAt(int columns) {
  wrapFor(columns);
  return static_cast<int>(wrapped_.size());
}

void ScrollingText::wrapFor(int columns) {
  if (std::exchange(wrappedAt_, columns) == columns) return;
  wrapped_.clear();
  for (const auto& line : lines_) {
    for (auto& part : displayText::wrapped(line, columns)) wrapped_.push_back(std::move(part));
  }
}

void ScrollingText::draw(Canvas& canvas, const Area& area, int covered) {
  wrapFor(area.columns - 1);
  height_ = std::max(area.rows, 1);
  top_ = follows_ ? furthest() : std::clamp(top_, 0, furthest());
  for (int row = 0; row < area.rows; ++row) {
    const int index = top_ + row;
    if (index >= std::ssize(wrapped_)) break;
    canvas.putWithin(area.row + row, area.column, area.columns - 1,
                     wrapped_[static_cast<std::size_t>(index)]);
  }
  endWasDrawn_ = endWasDrawn_ || top_ + area.rows - covered >= std::ssize(wrapped_);
  const int right = area.column + area.columns - 1;
  if (top_ > 0) canvas.put(area.row, right, canvas.symbols().moreAbove, {.bold = true});
  if (top_ < furthest()) {
    canvas.put(area.row + area.rows - 1, right, canvas.symbols().moreBelow, {.bold = true});
  }
}

}  // namespace zephyl
