#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <variant>

#include <boost/describe/class.hpp>

#include "Desktop/Dialogs.hpp"

/// The messages between the tray and zephyl-tray-dialogs, one JSON object a line: the values of
/// Desktop/Dialogs.hpp and some additional ones.
///
/// The tray writes one `DialogRequest` and then any number of `DialogOrder`s, which may arrive
/// before the window is on screen. The program ignores unknown orders and orders that do not apply
/// to its window. It sends these `DialogReport`s: `DialogShown` when its window is on screen, then
/// an answer, after which the window is closed (or, for a log window, any number of events of which
/// the last is `closed`), and `DialogHidden` when the window was hidden. A `Pong` may be sent at
/// any time. The end of the input closes the window without an answer, like `CloseDialog`.
namespace zephyl {

/// The first message to the program.
using DialogRequest = std::variant<Alert, FolderRequest, LogWindow>;

constexpr std::array<std::string_view, 3> messageNames(const DialogRequest*) {
  return {"alert", "folderPicker", "logWindow"};
}

/// Requests an immediate `Pong` with the same number.
struct Ping {
  std::int64_t value = 0;
};
BOOST_DESCRIBE_STRUCT(Ping, (), (value))

/// Closes the window without an answer.
struct CloseDialog {};
BOOST_DESCRIBE_STRUCT(CloseDialog, (), ())

/// Brings the window to the front on request of the user.
struct BringToFront {
  std::string activationToken;  ///< permits the window to take the focus; may be empty
};
BOOST_DESCRIBE_STRUCT(BringToFront, (), (activationToken))

/// Messages to an open dialog. `Progress` updates the bar of an alert that has one.
using DialogOrder = std::variant<Ping, CloseDialog, Progress, BringToFront>;

constexpr std::array<std::string_view, 4> messageNames(const DialogOrder*) {
  return {"ping", "close", "progress", "bringToFront"};
}

/// Reports that the window is on screen.
struct DialogShown {};
BOOST_DESCRIBE_STRUCT(DialogShown, (), ())

/// Reports that the window was hidden.
struct DialogHidden {};
BOOST_DESCRIBE_STRUCT(DialogHidden, (), ())

/// The answer to a `Ping`, with the same number.
struct Pong {
  std::int64_t value = 0;
};
BOOST_DESCRIBE_STRUCT(Pong, (), (value))

/// The answer of a folder picker: a path, empty if the user cancelled.
struct ChosenFolder {
  std::string value;
};
BOOST_DESCRIBE_STRUCT(ChosenFolder, (), (value))

/// Messages from the program.
using DialogReport =
    std::variant<DialogShown, DialogHidden, Pong, AlertAnswer, ChosenFolder, LogWindowEvent>;

constexpr std::array<std::string_view, 6> messageNames(const DialogReport*) {
  return {"shown", "hidden", "pong", "answer", "folder", "logEvent"};
}

/// The protocol for `HelperProcess`.
struct DialogsProtocol {
  using Request = DialogRequest;
  using Order = DialogOrder;
  using Report = DialogReport;
};

}  // namespace zephyl
