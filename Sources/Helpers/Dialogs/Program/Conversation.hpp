#pragma once

#include <QSocketNotifier>
#include <functional>
#include <optional>
#include <string>

#include "Helpers/Dialogs/Protocol/DialogMessages.hpp"
#include "System/Data/Result.hpp"

namespace zephyl {

/// What the tray wants of the window.
struct WindowOrders {
  std::function<void()> close;
  std::function<void(const ProgressValue&)> progress;
  std::function<void(const BringToFrontOrder&)> bringToFront;
};

/// What is said between this program and the tray, on standard input and output. Main thread.
class Conversation {
 public:
  Conversation();

  /// Waits for what is to be shown. Fails when the input ends before, or is not understood.
  Result<DialogRequest> readRequest();
  /// From now on pings are answered, and what is said about the window is handed on.
  void follow(WindowOrders orders);
  void report(const DialogReport& report);

 private:
  /// False at the end of the input.
  bool read();
  std::optional<std::string> takeLine();
  void obey(const std::string& line);
  void readOrders();

  std::string received_;  // and not yet taken
  WindowOrders orders_;
  QSocketNotifier notifier_;
};

}  // namespace zephyl
