#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "Helpers/Dialogs/Protocol/DialogMessages.hpp"
#include "System/Concurrency/Clock.hpp"
#include "System/Processes/ChildProcess.hpp"

namespace zephyl {

class MainLoop;

/// One run of zephyl-tray-dialogs, from its start until its window is gone. Main thread.
///
/// The program has `shownLimit` to show its window. From then on it is asked every `pingInterval`
/// whether it still answers, and has died when two answers are missing. It is killed when it says
/// what makes no sense, and when its window is still there `farewellLimit` after it should be gone.
class DialogRun : public std::enable_shared_from_this<DialogRun> {
 public:
  static constexpr Duration shownLimit = std::chrono::seconds(5);
  static constexpr Duration pingInterval = std::chrono::seconds(3);
  static constexpr Duration farewellLimit = std::chrono::seconds(2);
  static constexpr int maxMissedPings = 2;
  static constexpr int maxErrorLines = 20;  ///< of its standard error that are logged

  /// What to do about a report.
  struct Step {
    bool last = false;  ///< the window is gone, or about to go
    Task tell;
  };
  struct Owner {
    /// Called with answers and events, once the window is shown; none when they make no sense.
    std::function<std::optional<Step>(DialogReport&)> interpret;
    /// Called instead of any further answer: the program has failed, before its window was shown
    /// or after.
    std::function<void(bool wasShown)> failed;
  };

  /// All three outlive it.
  DialogRun(MainLoop& mainLoop, Clock& clock, ProcessLauncher& launcher, Owner owner);

  /// Starts the program, with a token that lets its window come to the front (empty for none). A
  /// failure, too, is told later.
  void start(const std::string& program, const DialogRequest& request,
             const std::string& activationToken);
  /// Says something to the program. Nothing once its window is gone.
  void order(const DialogOrder& order);
  /// Takes the window away; the owner hears nothing more.
  void close();

 private:
  enum class State { starting, shown, over };

  ProcessOptions options(const std::string& program, const std::string& activationToken);
  /// On any thread: has `work` done on the main one, unless this is gone by then.
  static void later(MainLoop& mainLoop, const std::weak_ptr<DialogRun>& run,
                    std::function<void(DialogRun&)> work);
  void after(Duration delay, void (DialogRun::*work)());

  void takeLine(const std::string& line);
  void take(DialogReport& report);
  void becomeShown();
  void missShown();
  void ping();
  void end(ExitStatus status);

  void fail(const std::string& reason);
  void finish();

  MainLoop& mainLoop_;
  Clock& clock_;
  ProcessLauncher& launcher_;
  Owner owner_;
  std::shared_ptr<ChildProcess> child_;
  State state_ = State::starting;
  bool hidden_ = false;
  std::int64_t lastPing_ = 0;
  std::int64_t lastPong_ = 0;
  int missedPings_ = 0;
  Timer timer_;  // until it is shown; then between pings
};

}  // namespace zephyl
