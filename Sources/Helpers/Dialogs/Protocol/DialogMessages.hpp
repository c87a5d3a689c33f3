#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <boost/describe/class.hpp>
#include <boost/describe/enum.hpp>

/// What the tray and zephyl-tray-dialogs say to each other, one JSON object a line.
///
/// The tray writes one `DialogRequest`, then any number of `DialogOrder`s, which come in order and
/// may come before the window is on screen; one that the program does not know, or that its window
/// has no use for, is passed over. Orders that a program which has died did not read are lost. The
/// program answers with `DialogReport`s: `shown` once its window is on screen; an answer, after
/// which the window is gone, or for a log window any number of events with `closed` as the last;
/// and `hidden` when the window has left the screen. A pong may come at any time. An end of the
/// input closes the window without an answer, as `close` does.
namespace zephyl {

/// Of an `Alert::TextField`.
struct AlertTextField {
  std::string placeholder;
  std::int64_t width = 0;
};
BOOST_DESCRIBE_STRUCT(AlertTextField, (), (placeholder, width))

/// Of a `Progress`.
struct ProgressValue {
  std::optional<double> fraction;  ///< from 0 to 1; none as long as nobody knows
  std::string text;
};
BOOST_DESCRIBE_STRUCT(ProgressValue, (), (fraction, text))

/// Of an `Alert`; see there.
struct AlertRequest {
  enum class Style { warning, critical, question, information };

  Style style = Style::warning;
  std::string messageText;
  std::string informativeText;
  std::vector<std::string> buttons;
  std::int64_t safeButton = 0;
  std::optional<std::vector<std::int64_t>> permittingButtons;
  std::optional<AlertTextField> textField;
  std::optional<ProgressValue> progress;
};
BOOST_DESCRIBE_STRUCT(AlertRequest, (),
                      (style, messageText, informativeText, buttons, safeButton, permittingButtons,
                       textField, progress))

BOOST_DESCRIBE_ENUM(AlertRequest::Style, warning, critical, question, information)

/// Of a `FolderRequest`.
struct FolderPickerRequest {
  std::string prompt;
  std::string message;
};
BOOST_DESCRIBE_STRUCT(FolderPickerRequest, (), (prompt, message))

/// Of a `LogWindow`.
struct LogWindowRequest {
  std::string title;
  std::string message;
  std::string shownText;
  std::string fullText;
};
BOOST_DESCRIBE_STRUCT(LogWindowRequest, (), (title, message, shownText, fullText))

/// What to show: exactly one of the first three.
struct DialogRequest {
  std::optional<AlertRequest> alert;
  std::optional<FolderPickerRequest> folderPicker;
  std::optional<LogWindowRequest> logWindow;
  /// True if the user did not ask for the window: see `Alert::requestedByUser`.
  std::optional<bool> unrequested;
};
BOOST_DESCRIBE_STRUCT(DialogRequest, (), (alert, folderPicker, logWindow, unrequested))

/// The user has asked for the window.
struct BringToFrontOrder {
  std::string activationToken;  ///< permits the window to take the focus; may be empty
};
BOOST_DESCRIBE_STRUCT(BringToFrontOrder, (), (activationToken))

/// What the tray says to a dialog that is open: exactly one of these.
struct DialogOrder {
  std::optional<std::int64_t> ping;       ///< to be answered at once with a pong of the same number
  std::optional<bool> close;              ///< without an answer
  std::optional<ProgressValue> progress;  ///< how far it is now, for an alert with a bar
  std::optional<BringToFrontOrder> bringToFront;
};
BOOST_DESCRIBE_STRUCT(DialogOrder, (), (ping, close, progress, bringToFront))

/// How the user answers an alert.
struct AlertReply {
  std::int64_t button = 0;  ///< its place among the buttons
  std::string text;         ///< of the text field
};
BOOST_DESCRIBE_STRUCT(AlertReply, (), (button, text))

/// What the program says: exactly one of these.
struct DialogReport {
  enum class LogEvent { openInCursor, openInVSCode, openInTextEdit, closed };

  std::optional<bool> shown;
  std::optional<std::int64_t> pong;
  std::optional<AlertReply> answer;   ///< of an alert
  std::optional<std::string> folder;  ///< the chosen one's path; empty when the user cancelled
  std::optional<LogEvent> logEvent;
  std::optional<bool> hidden;
};
BOOST_DESCRIBE_STRUCT(DialogReport, (), (shown, pong, answer, folder, logEvent, hidden))

BOOST_DESCRIBE_ENUM(DialogReport::LogEvent, openInCursor, openInVSCode, openInTextEdit, closed)

}  // namespace zephyl
