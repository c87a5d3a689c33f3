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

/// An alert as a box in the middle of the screen. The first button is chosen initially. While the
/// text field has the focus, Enter also means the first button. Escape means the safe button. While
/// the alert accepts no answer, no button is marked as chosen. A button that cannot be pressed is
/// dim. Pure.
class AlertBox {
 public:
  AlertBox(Alert alert, const TerminalCapabilities& capabilities);

  /// Sets the initial content of the text field.
  void setText(const std::string& text) { field_.setText(text); }
  /// Updates the progress bar of an alert that has one.
  void showProgress(const Progress& progress);

  /// Returns the user's answer if the key gives one. If `mayAnswer` is false, such keys do nothing,
  /// because the user may have meant the previous contents of the screen.
  std::optional<AlertAnswer> handle(const Key& key, bool mayAnswer = true);
  /// `mayAnswer` has the same meaning as in `handle`.
  void draw(Canvas& canvas, bool mayAnswer = true);
  [[nodiscard]] bool isRequestedByUser() const { return alert_.requestedByUser; }
  [[nodiscard]] bool permitsSomething() const { return !alert_.permittingButtons.empty(); }

 private:
  struct Layout {
    std::vector<std::string> message;
    std::vector<Area> buttons;  // relative to the inside of the box
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
  /// Returns whether the button may be pressed: it permits nothing, or the whole text was on
  /// screen.
  [[nodiscard]] bool isEnabled(std::size_t button) const;
  [[nodiscard]] std::vector<Area> placeButtons(int columns) const;
  [[nodiscard]] Layout computeLayout(ScreenSize size);
  void drawFrame(Canvas& canvas, const Area& box) const;
  void drawText(Canvas& canvas, const Area& inside, const Layout& layout);
  /// Draws, on the frame, what the user must do before the alert can be answered.
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
  std::size_t focus_ = 0;          // index of a button; the number of buttons means the text field
  std::vector<Area> buttonAreas_;  // positions on the screen
};

}  // namespace zephyl
