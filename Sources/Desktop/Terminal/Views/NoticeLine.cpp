#include "Desktop/Terminal/Views/NoticeLine.hpp"

#include "Desktop/Terminal/Drawing/DisplayText.hpp"
#include "System/Data/Text.hpp"

namespace zephyl {

void NoticeLine::post(const Notification& notification, Instant now) {
  remove(notification.identifier);
  posted_.push_back({notification, now});
}

void NoticeLine::remove(const std::string& identifier) {
  std::erase_if(posted_,
                [&](const Posted& each) { return each.notification.identifier == identifier; });
}

void NoticeLine::expire(Instant now) {
  std::erase_if(posted_, [&](const Posted& each) { return now >= each.at + brightFor + dimFor; });
}

const Notification* NoticeLine::shown() const {
  return posted_.empty() ? nullptr : &posted_.back().notification;
}

std::optional<Instant> NoticeLine::nextChange(Instant now) const {
  if (posted_.empty()) return std::nullopt;
  const Instant fades = posted_.back().at + brightFor;
  return now < fades ? fades : fades + dimFor;
}

void NoticeLine::draw(Canvas& canvas, const Area& area, Instant now) const {
  if (posted_.empty()) return;
  const auto& [notification, at] = posted_.back();
  const bool bright = now < at + brightFor;
  std::string text = notification.title;
  if (!text.empty() && !notification.body.empty()) text += ": ";
  text += notification.body;
  if (!notification.actionTitle.empty()) text += "  [n] " + notification.actionTitle;
  const auto shown = displayText::shown(visible(text), canvas.capabilities());
  canvas.put(area.row, area.column, displayText::cut(shown, area.columns, canvas.capabilities()),
             {.color = CellStyle::Color::orange, .bold = bright, .dim = !bright});
}

void NoticeLine::drawOverLog(Canvas& canvas, Instant now) const {
  const auto [height, columns] = canvas.size();
  if (posted_.empty() || height < 4) return;
  canvas.clear({height - 2, 0, 1, columns});
  draw(canvas, {height - 2, 1, 1, columns - 2}, now);
}

}  // namespace zephyl
