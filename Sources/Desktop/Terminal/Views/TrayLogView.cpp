#include "Desktop/Terminal/Views/TrayLogView.hpp"

#include <algorithm>
#include <utility>

#include "System/Data/Text.hpp"

namespace zephyl {

void TrayLogView::append(std::vector<std::string> lines) {
  unseenLines_ += lines.size();
  for (auto& line : lines) log_.append(std::move(line));
  if (box_) updateBox();
}

void TrayLogView::open() {
  box_.emplace("Log", "", capabilities_);
  box_->toEnd();
  updateBox();
}

LogBox::Outcome TrayLogView::handle(const Key& key) {
  const auto outcome = box_->handle(key);
  if (outcome == LogBox::Outcome::close) close();
  return outcome;
}

void TrayLogView::draw(Canvas& canvas) {
  canvas.clear(canvas.area());
  box_->draw(canvas, canvas.area());
}

std::string TrayLogView::text() const {
  auto lines = log_.lines();
  for (auto& line : lines) line = visible(line);
  return joined(lines, "\n");
}

std::vector<std::string> TrayLogView::unseen() const {
  auto lines = log_.lines();
  const auto seen = lines.size() - std::min(lines.size(), unseenLines_);
  lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(seen));
  return lines;
}

void TrayLogView::updateBox() {
  unseenLines_ = 0;
  box_->setText(log_.lines());
}

}  // namespace zephyl
