#pragma once

#include <memory>
#include <string>

#include "Desktop/Desktop.hpp"
#include "Desktop/Dialogs.hpp"
#include "System/Concurrency/Runtime.hpp"
#include "ZephylTray/App/CommandLine.hpp"

namespace zephyl {

/// The desktop adapter of the program and its dialogs. The dialogs are destroyed first.
struct FrontEnd {
  std::unique_ptr<Desktop> desktop;
  std::unique_ptr<Dialogs> dialogs;
  bool endsAtHangUp = true;  ///< whether SIGHUP ends the program

  /// Returns the front end for `mode`. If it is not available, logs the reason and returns the
  /// headless one. The objects that `runtime` refers to must outlive it. `activationToken` came
  /// with the start of this program and may be empty.
  static FrontEnd make(CommandLine::Mode mode, const Runtime& runtime, std::string activationToken);
};

}  // namespace zephyl
