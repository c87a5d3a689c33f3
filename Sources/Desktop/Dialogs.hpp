#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include <boost/describe/class.hpp>
#include <boost/describe/enum.hpp>

#include "Desktop/FolderRequest.hpp"
#include "System/Data/Result.hpp"
#include "System/Data/Secret.hpp"

namespace zephyl {

// The values are described, so that they can be sent to a helper program as they are.

/// The progress of something that takes time.
struct Progress {
  std::optional<double> fraction;  ///< from 0 to 1; nullopt while it is unknown
  std::string text;                ///< the same in words, a line

  bool operator==(const Progress&) const = default;
};
BOOST_DESCRIBE_STRUCT(Progress, (), (fraction, text))

/// A line in which the user types. (Clang could not default-construct it in a `std::optional` if it
/// were defined within `Alert`.)
struct AlertTextField {
  std::string placeholder;
  int width = 0;  ///< in points

  bool operator==(const AlertTextField&) const = default;
};
BOOST_DESCRIBE_STRUCT(AlertTextField, (), (placeholder, width))

/// A message that asks for an answer. All texts are plain: shown as they are, without markup.
struct Alert {
  enum class Style { warning, critical, question, information };

  Style style = Style::warning;
  std::string messageText;
  std::string informativeText;
  std::vector<std::string> buttons;  ///< at least one; the first is the default
  std::size_t safeButton = 0;        ///< what Escape, closing, or the dialog's death chooses

  using TextField = AlertTextField;
  std::optional<TextField> textField;  ///< has the focus at first
  std::optional<Progress> progress;    ///< a bar below the texts, which the dialog's handle moves
  /// Places in `buttons` of those that permit something. They can be pressed only after the whole
  /// text has been on screen, and arrow keys never move the focus to them.
  std::vector<std::size_t> permittingButtons;
  /// Whether the alert answers something that the user has just done. Any other alert is shown
  /// without taking the focus where the window system allows that, and ignores keys and clicks as
  /// `InputGuard` says, also each time it becomes active.
  bool requestedByUser = false;

  bool operator==(const Alert&) const = default;
};
BOOST_DESCRIBE_ENUM(Alert::Style, warning, critical, question, information)
BOOST_DESCRIBE_STRUCT(Alert, (),
                      (style, messageText, informativeText, buttons, safeButton, textField,
                       progress, permittingButtons, requestedByUser))
constexpr auto fieldsWithDefault(const Alert*) {
  return std::tuple(&Alert::permittingButtons, &Alert::requestedByUser);
}

struct AlertAnswer {
  std::size_t button = 0;  ///< its place in `Alert::buttons`
  SecretString text;       ///< of the text field

  bool operator==(const AlertAnswer&) const = default;
};
BOOST_DESCRIBE_STRUCT(AlertAnswer, (), (button, text))

/// A log that the user may read.
struct LogWindow {
  std::string title;
  std::string message;           ///< what went wrong; empty when nothing did
  std::string shownText;         ///< what is on screen
  std::string fullText;          ///< what is copied
  bool requestedByUser = false;  ///< as in `Alert`

  bool operator==(const LogWindow&) const = default;
};
BOOST_DESCRIBE_STRUCT(LogWindow, (), (title, message, shownText, fullText, requestedByUser))
constexpr auto fieldsWithDefault(const LogWindow*) {
  return std::tuple(&LogWindow::requestedByUser);
}

/// What the user does with a log window.
enum class LogWindowEvent { openInCursor, openInVSCode, openInTextEdit, closed };
BOOST_DESCRIBE_ENUM(LogWindowEvent, openInCursor, openInVSCode, openInTextEdit, closed)

/// A dialog on screen, or on its way there. Destroying it closes the dialog, which is not answered
/// afterwards.
class Dialog {
 public:
  virtual ~Dialog() = default;
  Dialog() = default;
  Dialog(const Dialog&) = delete;
  Dialog& operator=(const Dialog&) = delete;

  /// Moves the bar of an alert that has one; nothing for any other dialog, and for one that is not
  /// on screen any more. Each call is drawn, so there should be few in a second.
  virtual void showProgress(const Progress& /*progress*/) {}

  /// Brings the dialog to the front, with the focus, because the user has just asked for it. Does
  /// nothing where a dialog cannot be behind something else, and for one that is gone.
  virtual void bringToFront() {}
};

/// Windows that ask the user or show something. Presenting returns at once; answers come later, on
/// the main thread, on which everything is called, too. Several dialogs may be open side by side.
class Dialogs {
 public:
  using Handle = std::unique_ptr<Dialog>;

  virtual ~Dialogs() = default;
  Dialogs() = default;
  Dialogs(const Dialogs&) = delete;
  Dialogs& operator=(const Dialogs&) = delete;

  /// Answers once: none when the alert could not be shown, so that nobody has seen it.
  [[nodiscard]] virtual Handle presentAlert(
      const Alert& alert, std::function<void(std::optional<AlertAnswer>)> done) = 0;
  /// Answers once: a folder's path, nothing when the user cancelled, or why nobody could be asked.
  [[nodiscard]] virtual Handle chooseFolder(
      const FolderRequest& request,
      std::function<void(Result<std::optional<std::string>>)> done) = 0;
  /// Tells what the user does until the window is closed. A window that cannot be shown goes to
  /// the log instead, and is closed.
  [[nodiscard]] virtual Handle presentLogWindow(const LogWindow& window,
                                                std::function<void(LogWindowEvent)> notify) = 0;
};

}  // namespace zephyl
