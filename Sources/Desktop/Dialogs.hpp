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

// The values are described, so that they can be sent to a helper program unchanged.

/// The progress of a long operation.
struct Progress {
  std::optional<double> fraction;  ///< from 0 to 1; nullopt while unknown
  std::string text;                ///< the progress in words, on one line

  bool operator==(const Progress&) const = default;
};
BOOST_DESCRIBE_STRUCT(Progress, (), (fraction, text))

/// A line of text that the user types. (Clang could not default-construct it in a `std::optional`
/// if it were defined within `Alert`.)
struct AlertTextField {
  std::string placeholder;
  int width = 0;  ///< in points

  bool operator==(const AlertTextField&) const = default;
};
BOOST_DESCRIBE_STRUCT(AlertTextField, (), (placeholder, width))

/// A message that requires an answer. All texts are plain and shown without markup.
struct Alert {
  enum class Style { warning, critical, question, information };

  Style style = Style::warning;
  std::string heading;
  std::string explanation;
  std::vector<std::string> buttons;  ///< at least one; the first is the default
  std::size_t safeButton = 0;        ///< chosen by Escape, by closing and by a crash of the dialog

  using TextField = AlertTextField;
  std::optional<TextField> textField;  ///< has the initial focus
  std::optional<Progress> progress;  ///< a bar below the texts, updated through the dialog's handle
  /// Indices in `buttons` of the buttons that permit something. They can be pressed only after the
  /// whole text was on screen, and arrow keys never move the focus to them.
  std::vector<std::size_t> permittingButtons;
  /// Whether the alert responds to an action of the user. Any other alert is shown without taking
  /// the focus, if the window system permits that, and ignores keys and clicks as `InputGuard`
  /// requires, also each time it becomes active.
  bool requestedByUser = false;
  /// The activation token of the user's action if the alert is presented after the action was
  /// handled (see `Dialogs::consumeActivationToken`). Is not sent to a helper program.
  std::string activationToken;

  bool operator==(const Alert&) const = default;
};
BOOST_DESCRIBE_ENUM(Alert::Style, warning, critical, question, information)
BOOST_DESCRIBE_STRUCT(Alert, (),
                      (style, heading, explanation, buttons, safeButton, textField, progress,
                       permittingButtons, requestedByUser))
constexpr auto fieldsWithDefault(const Alert*) {
  return std::tuple(&Alert::permittingButtons, &Alert::requestedByUser);
}

/// The user's answer to an alert.
struct AlertAnswer {
  std::size_t button = 0;  ///< index in `Alert::buttons`
  SecretString text;       ///< the content of the text field

  bool operator==(const AlertAnswer&) const = default;
};
BOOST_DESCRIBE_STRUCT(AlertAnswer, (), (button, text))

/// A window that shows a log.
struct LogWindow {
  std::string title;
  std::string message;           ///< the error; empty if there is none
  std::string shownText;         ///< the text on screen
  std::string fullText;          ///< the text for the clipboard
  bool requestedByUser = false;  ///< see `Alert`

  bool operator==(const LogWindow&) const = default;
};
BOOST_DESCRIBE_STRUCT(LogWindow, (), (title, message, shownText, fullText, requestedByUser))
constexpr auto fieldsWithDefault(const LogWindow*) {
  return std::tuple(&LogWindow::requestedByUser);
}

/// An action of the user in a log window.
enum class LogWindowEvent { openInCursor, openInVSCode, openInTextEdit, closed };
BOOST_DESCRIBE_ENUM(LogWindowEvent, openInCursor, openInVSCode, openInTextEdit, closed)

/// A dialog that is open or being opened. Destroying it closes the dialog without an answer.
class Dialog {
 public:
  virtual ~Dialog() = default;
  Dialog() = default;
  Dialog(const Dialog&) = delete;
  Dialog& operator=(const Dialog&) = delete;

  /// Updates the progress bar of an alert that has one. Does nothing for other dialogs and for
  /// closed ones. Each call is drawn, so it should be called only a few times a second.
  virtual void showProgress(const Progress& /*progress*/) {}

  /// Brings the dialog to the front, with the focus, on request of the user. Does nothing if
  /// dialogs cannot be covered, or if it is closed.
  virtual void bringToFront() {}
};

/// Windows that ask the user or show information. Presenting returns at once, and answers are
/// delivered later. Main thread only, including the callbacks. Several dialogs may be open at the
/// same time.
class Dialogs {
 public:
  using Handle = std::unique_ptr<Dialog>;

  virtual ~Dialogs() = default;
  Dialogs() = default;
  Dialogs(const Dialogs&) = delete;
  Dialogs& operator=(const Dialogs&) = delete;

  /// Calls `done` once, with nullopt if the alert could not be shown.
  [[nodiscard]] virtual Handle presentAlert(
      const Alert& alert, std::function<void(std::optional<AlertAnswer>)> done) = 0;
  /// Calls `done` once with the folder's path, nullopt if the user cancelled, or an error if the
  /// dialog could not be shown.
  [[nodiscard]] virtual Handle chooseFolder(
      const FolderRequest& request,
      std::function<void(Result<std::optional<std::string>>)> done) = 0;
  /// Calls `notify` with the user's actions until the window is closed. If the window cannot be
  /// shown, its text is logged and `closed` is reported.
  [[nodiscard]] virtual Handle presentLogWindow(const LogWindow& window,
                                                std::function<void(LogWindowEvent)> notify) = 0;

  /// Returns and clears the activation token of the user's action that is being handled, for an
  /// alert that is presented later. May be empty. Dialogs that are presented while the action is
  /// handled consume it themselves if the user requested them.
  virtual std::string consumeActivationToken() { return {}; }
};

}  // namespace zephyl
