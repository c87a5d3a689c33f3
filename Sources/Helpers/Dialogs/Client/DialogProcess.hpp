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

/// One run of zephyl-tray-dialogs, from its start until its window is hidden. Main thread only.
///
/// The program must show its window within `shownTimeout`. Then it is pinged every `pingInterval`
/// and counts as dead after `maxMissedPings` unanswered pings in a row. It is killed if it sends an
/// invalid or unexpected message, or if its window is still visible `hiddenTimeout` after it was
/// closed.
class DialogProcess : public std::enable_shared_from_this<DialogProcess> {
 public:
  static constexpr Duration shownTimeout = std::chrono::seconds(5);
  static constexpr Duration pingInterval = std::chrono::seconds(3);
  static constexpr Duration hiddenTimeout = std::chrono::seconds(2);
  static constexpr int maxMissedPings = 2;
  static constexpr int maxErrorLines = 20;  ///< the number of logged lines of its standard error

  /// The handling of a report.
  struct Step {
    bool isLast = false;  ///< whether the window is closed or closing
    Task notify;
  };
  struct Owner {
    /// Called with answers and events while the window is shown. Returns nullopt if the report is
    /// not valid for the request.
    std::function<std::optional<Step>(DialogReport&)> interpret;
    /// Called instead of any further answer if the program has failed, before or after its window
    /// was shown.
    std::function<void(bool wasShown)> failed;
  };

  /// `mainLoop` and `clock` must outlive it.
  DialogProcess(MainLoop& mainLoop, Clock& clock, Owner owner);

  /// Starts `program`. `activationToken` permits its window to come to the front and may be empty.
  /// A failure is reported to the owner later.
  void start(ProcessLauncher& launcher, const std::string& program, const DialogRequest& request,
             const std::string& activationToken);
  /// Sends a message unless the window was closed.
  void send(const DialogOrder& order);
  /// Closes the window. The owner is not called afterwards.
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
  Timer timer_;  // the limit for showing the window, later the time between pings
};

}  // namespace zephyl
