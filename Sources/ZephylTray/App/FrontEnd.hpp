#pragma once

#include <memory>

#include "Desktop/Desktop.hpp"
#include "Desktop/Dialogs.hpp"
#include "System/Concurrency/Runtime.hpp"
#include "ZephylTray/App/CommandLine.hpp"

namespace zephyl {

/// The desktop that the program shows itself on, and the dialogs that go with it. The dialogs go
/// first.
struct FrontEnd {
  std::unique_ptr<Desktop> desktop;
  std::unique_ptr<Dialogs> dialogs;
  bool endsAtHangUp = true;  ///< whether SIGHUP ends the program

  /// What `mode` asks for; where that is not to be had, says so and is headless. What `runtime`
  /// refers to outlives it.
  static FrontEnd make(CommandLine::Mode mode, const Runtime& runtime);
};

}  // namespace zephyl
