#pragma once

#include <QSocketNotifier>
#include <functional>

#include "Helpers/Dialogs/Protocol/DialogMessages.hpp"
#include "System/Data/Result.hpp"
#include "System/Processes/JSONLines.hpp"

namespace zephyl {

/// The window's handlers for the tray's orders.
struct WindowOrders {
  std::function<void()> close;
  std::function<void(const Progress&)> progress;
  std::function<void(const BringToFront&)> bringToFront;
};

/// The messages between this program and the tray, on standard input and output. Main thread only.
class Conversation {
 public:
  Conversation();

  /// Waits for the request. Fails if the input ends first or the request is invalid.
  Result<DialogRequest> readRequest();
  /// Starts to answer pings and to pass orders to `orders`.
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
