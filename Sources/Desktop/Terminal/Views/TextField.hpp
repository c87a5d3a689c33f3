#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "Desktop/Terminal/Drawing/Canvas.hpp"
#include "Desktop/Terminal/Drawing/Key.hpp"

namespace zephyl {

/// A line of text that the user types. What was typed may be a secret: it is overwritten when the
/// field goes. Pure.
class TextField {
 public:
  explicit TextField(std::string placeholder) : placeholder_(std::move(placeholder)) {}
  ~TextField();
  TextField(const TextField&) = delete;
  TextField& operator=(const TextField&) = delete;

  [[nodiscard]] const std::string& text() const { return text_; }
  void setText(std::string_view text);

  /// Whether the key was one for a text field.
  bool handle(const Key& key);
  /// Draws the part around the cursor, and sets the canvas's cursor when `focused`.
  void draw(Canvas& canvas, const Area& area, bool focused) const;

 private:
  bool handleControl(const std::string& letter);
  void insert(std::string_view text);
  void erase(std::size_t from, std::size_t to);
  [[nodiscard]] std::size_t before(std::size_t place) const;
  [[nodiscard]] std::size_t after(std::size_t place) const;
  [[nodiscard]] std::size_t wordBefore(std::size_t place) const;

  const std::string placeholder_;
  std::string text_;
  std::size_t cursor_ = 0;  // in bytes
};

}  // namespace zephyl
