#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "Helpers/Dialogs/Protocol/DialogMessages.hpp"
#include "System/Concurrency/Clock.hpp"
#include "System/Processes/HelperProcess.hpp"

namespace zephyl {

class MainLoop;

/// One run of zephyl-tray-dialogs, from its start until its window is gone. Main thread.
///
/// The program has `shownTimeout` to show its window. From then on it is pinged every
/// `pingInterval`, and counts as dead when `maxMissedPings` in a row were not answered. It is
/// killed if it sends an invalid or unexpected message, and if its window is still there
/// `hiddenTimeout` after it was closed.
class DialogProcess : public std::enable_shared_from_this<DialogProcess> {
 public:
  static constexpr Duration shownTimeout = std::chrono::seconds(5);
  static constexpr Duration pingInterval = std::chrono::seconds(3);
  static constexpr Duration hiddenTimeout = std::chrono::seconds(2);
  static constexpr int maxMissedPings = 2;
  static constexpr int maxErrorLines = 20;  ///< of its standard error that are logged

  /// How to handle a report.
  struct Step {
    bool isLast = false;  ///< the window is gone, or about to go
    Task notify;
  };
  struct Owner {
    /// Called with answers and events while the window is shown. Returns nullopt if the report
    /// does not answer the request.
    std::function<std::optional<Step>(DialogReport&)> interpret;
    /// Called instead of any further answer: the program has failed, before its window was shown
    /// or after.
    std::function<void(bool wasShown)> failed;
  };

  /// `mainLoop` and `clock` outlive it.
  DialogProcess(MainLoop& mainLoop, Clock& clock, Owner owner);

  /// Starts `program`. `activationToken` permits its window to come to the front; it may be empty.
  /// A failure is reported to the owner later.
  void start(ProcessLauncher& launcher, const std::string& program, const DialogRequest& request,
             const std::string& activationToken);
  /// Sends a message, unless the window is gone.
  void send(const DialogOrder& order);
  /// Closes the window. The owner is not called any more.
  void close();

 private:
  enum class State { starting, shown, over };

  HelperProcess<DialogsProtocol>::Events events();
  void after(Duration delay, void (DialogProcess::*work)());

  void handle(DialogReport report);
  void becomeShown();
  void failUnlessShown();
  void ping();

  void fail(const std::string& reason);
  void finish();

  MainLoop& mainLoop_;
  Clock& clock_;
  Owner owner_;
  std::optional<HelperProcess<DialogsProtocol>> program_;
  State state_ = State::starting;
  bool hidden_ = false;
  std::int64_t lastPing_ = 0;
  std::int64_t lastPong_ = 0;
  int missedPings_ = 0;
  Timer timer_;  // until the window is shown, then between pings
};

}  // namespace zephyl
