#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "Desktop/Terminal/Drawing/Canvas.hpp"
#include "Desktop/Terminal/Drawing/Key.hpp"

namespace zephyl {

/// A line of text that the user types and that may be secret. No I/O.
class TextField {
 public:
  explicit TextField(std::string placeholder) : placeholder_(std::move(placeholder)) {}

  [[nodiscard]] const SecretString& text() const { return text_; }
  void setText(std::string_view text);

  /// Handles a key. Returns whether it was a key for a text field.
  bool handle(const Key& key);
  /// Draws the part around the cursor. Sets the canvas's cursor if `focused`.
  void draw(Canvas& canvas, const Area& area, bool focused) const;

 private:
  bool handleControl(std::string_view letter);
  void insert(std::string_view text);
  void erase(std::size_t from, std::size_t to);
  [[nodiscard]] std::size_t before(std::size_t place) const;
  [[nodiscard]] std::size_t after(std::size_t place) const;
  [[nodiscard]] std::size_t wordBefore(std::size_t place) const;

  const std::string placeholder_;
  SecretString text_;
  std::size_t cursor_ = 0;  // in bytes
};

}  // namespace zephyl
