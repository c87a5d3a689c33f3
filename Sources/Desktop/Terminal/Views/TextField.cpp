#include "Desktop/Terminal/Views/TextField.hpp"

#include "Desktop/Terminal/Drawing/DisplayText.hpp"
#include "System/Data/Secret.hpp"
#include "System/Data/Text.hpp"

namespace zephyl {

namespace {

bool isContinuation(char byte) {
  return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
}

}  // namespace

void TextField::setText(std::string_view text) {
  text_ = text;
  cursor_ = text_.size();
}

bool TextField::handle(const Key& key) {
  using Kind = Key::Kind;
  switch (key.kind) {
    case Kind::character:
    case Kind::paste:
      insert(key.text);
      return true;
    case Kind::backspace:
      erase(before(cursor_), cursor_);
      return true;
    case Kind::remove:
      erase(cursor_, after(cursor_));
      return true;
    case Kind::left:
      cursor_ = before(cursor_);
      return true;
    case Kind::right:
      cursor_ = after(cursor_);
      return true;
    case Kind::home:
      cursor_ = 0;
      return true;
    case Kind::end:
      cursor_ = text_.size();
      return true;
    case Kind::control:
      return handleControl(key.text);
    default:
      return false;
  }
}

/// Handles the editing keys of a shell.
bool TextField::handleControl(std::string_view letter) {
  if (letter == "a") {
    cursor_ = 0;
  } else if (letter == "e") {
    cursor_ = text_.size();
  } else if (letter == "u") {
    erase(0, cursor_);
  } else if (letter == "k") {
    erase(cursor_, text_.size());
  } else if (letter == "w") {
    erase(wordBefore(cursor_), cursor_);
  } else {
    return false;
  }
  return true;
}

void TextField::insert(std::string_view text) {
  std::string clean = withoutControlCharacters(text);
  text_.insert(cursor_, clean);
  cursor_ += clean.size();
  wipe(clean);
}

void TextField::erase(std::size_t from, std::size_t to) {
  text_.erase(from, to - from);
  cursor_ = from;
}

std::size_t TextField::before(std::size_t place) const {
  if (place == 0) return 0;
  --place;
  while (place > 0 && isContinuation(text_[place])) --place;
  return place;
}

std::size_t TextField::after(std::size_t place) const {
  if (place == text_.size()) return place;
  ++place;
  while (place < text_.size() && isContinuation(text_[place])) ++place;
  return place;
}

std::size_t TextField::wordBefore(std::size_t place) const {
  while (place > 0 && text_[place - 1] == ' ') --place;
  while (place > 0 && text_[place - 1] != ' ') --place;
  return place;
}

void TextField::draw(Canvas& canvas, const Area& area, bool focused) const {
  std::string_view rest = text_;
  int toCursor = displayText::width(rest.substr(0, cursor_));
  for (const auto& glyph : displayText::glyphs(text_)) {
    if (toCursor < area.columns) break;
    rest.remove_prefix(glyph.bytes.size());
    toCursor -= glyph.width;
  }
  if (text_.empty()) {
    canvas.putWithin(area.row, area.column, area.columns,
                     displayText::shown(placeholder_, canvas.capabilities()), {.dim = true});
  } else {
    canvas.putWithin(area.row, area.column, area.columns, rest);
  }
  if (focused) canvas.setCursor({area.row, area.column + toCursor});
}

}  // namespace zephyl
