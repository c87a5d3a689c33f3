#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "Desktop/Dialogs.hpp"
#include "Desktop/Terminal/Drawing/Canvas.hpp"
#include "Desktop/Terminal/Drawing/Key.hpp"
#include "Desktop/Terminal/Views/ScrollingText.hpp"
#include "Desktop/Terminal/Views/TextField.hpp"

namespace zephyl {

/// An alert as a box in the middle of the screen. The first button is chosen at first; while the
/// text field has the focus, Enter means the first button as well. Escape means the safe one. Where
/// the box shows that it takes no answer, no button is marked as chosen; a button that cannot be
/// pressed is dim. Pure.
class AlertBox {
 public:
  AlertBox(Alert alert, const TerminalCapabilities& capabilities);

  /// What the text field holds at first.
  void setText(const std::string& text) { field_.setText(text); }
  /// Moves the bar of an alert that has one.
  void showProgress(const Progress& progress);

  /// Returns the user's answer, once there is one. Unless `mayAnswer`, keys that would give one do
  /// nothing: the user may have meant what was on screen before.
  std::optional<AlertAnswer> handle(const Key& key, bool mayAnswer = true);
  /// `mayAnswer`: as in `handle`.
  void draw(Canvas& canvas, bool mayAnswer = true);
  [[nodiscard]] bool isRequestedByUser() const { return alert_.requestedByUser; }
  [[nodiscard]] bool permitsSomething() const { return !alert_.permittingButtons.empty(); }

 private:
  struct Layout {
    std::vector<std::string> message;
    std::vector<Area> buttons;  // relative to their own place
    int buttonRows = 0;
    int gap = 0;  // rows around the text
    int textRows = 0;
    Area box;
  };

  [[nodiscard]] bool fieldHasFocus() const { return focus_ == alert_.buttons.size(); }
  [[nodiscard]] std::size_t stops() const {
    return alert_.buttons.size() + (alert_.textField ? 1 : 0);
  }
  [[nodiscard]] AlertAnswer answer(std::size_t button) const { return {button, field_.text()}; }
  [[nodiscard]] std::optional<AlertAnswer> handlePress(const Key& key, bool mayAnswer);
  void moveFocus(bool forwards, bool withArrow);
  [[nodiscard]] bool permits(std::size_t button) const;
  /// Whether the button may be pressed: it permits nothing, or the text has been on screen.
  [[nodiscard]] bool isEnabled(std::size_t button) const;
  [[nodiscard]] std::vector<Area> placeButtons(int columns) const;
  [[nodiscard]] Layout layOut(ScreenSize size);
  void drawFrame(Canvas& canvas, const Area& box) const;
  void drawText(Canvas& canvas, const Area& inside, const Layout& layout);
  /// On the frame: what has to be done before the alert can be answered.
  void drawHint(Canvas& canvas, const Area& box) const;
  void drawButtons(Canvas& canvas, const Area& inside, const std::vector<Area>& places,
                   bool mayAnswer);
  void drawField(Canvas& canvas, const Area& inside, int row) const;
  void drawProgress(Canvas& canvas, const Area& row) const;

  const TerminalCapabilities capabilities_;
  Alert alert_;
  TextField field_;
  ScrollingText text_;
  bool messageWasDrawn_ = false;
  std::size_t focus_ = 0;          // a button's place, or one more for the text field
  std::vector<Area> buttonAreas_;  // on screen
};

}  // namespace zephyl
