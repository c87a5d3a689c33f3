#pragma once

#include <QSocketNotifier>
#include <functional>

#include "Helpers/Dialogs/Protocol/DialogMessages.hpp"
#include "System/Data/Result.hpp"
#include "System/Processes/JSONLines.hpp"

namespace zephyl {

/// What the window does when the tray orders it.
struct WindowOrders {
  std::function<void()> close;
  std::function<void(const Progress&)> progress;
  std::function<void(const BringToFront&)> bringToFront;
};

/// The messages between this program and the tray, on standard input and output. Main thread.
class Conversation {
 public:
  Conversation();

  /// Waits for what is to be shown. Fails if the input ends first, or the request is invalid.
  Result<DialogRequest> readRequest();
  /// From now on answers pings and hands orders on.
  void follow(WindowOrders orders);
  void report(const DialogReport& report) { lines_.write(report); }

 private:
  void handleOrders();
  void handle(const DialogOrder& order);

  JSONLines lines_;
  WindowOrders orders_;
  QSocketNotifier notifier_;
};

}  // namespace zephyl
