#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <variant>

#include <boost/describe/class.hpp>

#include "Desktop/Dialogs.hpp"

/// The messages between the tray and zephyl-tray-dialogs, one JSON object a line: the values of
/// Desktop/Dialogs.hpp and what else a dialog needs.
///
/// The tray writes one `DialogRequest`, then any number of `DialogOrder`s, which may arrive before
/// the window is on screen. The program ignores an order that it does not know, or that does not
/// apply to its window. It answers with `DialogReport`s: `DialogShown` once its window is on
/// screen; an answer, after which the window is gone, or for a log window any number of events with
/// `closed` as the last; and `DialogHidden` when the window has left the screen. A `Pong` may come
/// at any time. The end of the input closes the window without an answer, as `CloseDialog` does.
namespace zephyl {

/// What to show.
using DialogRequest = std::variant<Alert, FolderRequest, LogWindow>;

constexpr std::array<std::string_view, 3> messageNames(const DialogRequest*) {
  return {"alert", "folderPicker", "logWindow"};
}

/// To be answered at once by a `Pong` with the same number.
struct Ping {
  std::int64_t value = 0;
};
BOOST_DESCRIBE_STRUCT(Ping, (), (value))

/// Close the window without an answer.
struct CloseDialog {};
BOOST_DESCRIBE_STRUCT(CloseDialog, (), ())

/// Bring the window to the front, because the user has asked for it.
struct BringToFront {
  std::string activationToken;  ///< permits the window to take the focus; may be empty
};
BOOST_DESCRIBE_STRUCT(BringToFront, (), (activationToken))

/// What the tray sends to an open dialog. `Progress` moves the bar of an alert that has one.
using DialogOrder = std::variant<Ping, CloseDialog, Progress, BringToFront>;

constexpr std::array<std::string_view, 4> messageNames(const DialogOrder*) {
  return {"ping", "close", "progress", "bringToFront"};
}

struct DialogShown {};
BOOST_DESCRIBE_STRUCT(DialogShown, (), ())

struct DialogHidden {};
BOOST_DESCRIBE_STRUCT(DialogHidden, (), ())

struct Pong {
  std::int64_t value = 0;
};
BOOST_DESCRIBE_STRUCT(Pong, (), (value))

/// The answer of a folder picker: a path, empty if the user cancelled.
struct ChosenFolder {
  std::string value;
};
BOOST_DESCRIBE_STRUCT(ChosenFolder, (), (value))

/// What the program reports.
using DialogReport =
    std::variant<DialogShown, DialogHidden, Pong, AlertAnswer, ChosenFolder, LogWindowEvent>;

constexpr std::array<std::string_view, 6> messageNames(const DialogReport*) {
  return {"shown", "hidden", "pong", "answer", "folder", "logEvent"};
}

/// For `HelperProcess`.
struct DialogsProtocol {
  using Request = DialogRequest;
  using Order = DialogOrder;
  using Report = DialogReport;
};

}  // namespace zephyl
