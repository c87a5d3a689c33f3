#pragma once

#include <functional>
#include <string>
#include <utility>

#include "Desktop/Dialogs.hpp"
#include "System/Concurrency/Clock.hpp"
#include "System/Processes/ChildProcess.hpp"

namespace zephyl {

class Bundle;
class DialogRun;
class MainLoop;
struct DialogRequest;

/// Dialogs as windows of a program of their own, zephyl-tray-dialogs, of which each dialog is one
/// run: a toolkit that crashes takes nothing with it but its window. What can go wrong with it goes
/// to the log.
///
/// An alert whose window never came is not answered; one that was shown and then lost is answered
/// with its safe button. A folder question is answered with the reason, or as cancelled.
class DialogHelper final : public Dialogs {
 public:
  /// Returns and forgets the token that permits the window of the user's latest action to come to
  /// the front; empty if there is no such token. Not called for a window that the user did not
  /// request.
  using TakeToken = std::function<std::string()>;

  /// The first three outlive it.
  DialogHelper(MainLoop& mainLoop, Clock& clock, ProcessLauncher& launcher, std::string program,
               TakeToken takeActivationToken = {})
      : mainLoop_(mainLoop),
        clock_(clock),
        launcher_(launcher),
        program_(std::move(program)),
        takeActivationToken_(std::move(takeActivationToken)) {}

  Handle presentAlert(const Alert& alert,
                      std::function<void(std::optional<AlertAnswer>)> done) override;
  Handle chooseFolder(const FolderRequest& request,
                      std::function<void(Result<std::optional<std::string>>)> done) override;
  Handle presentLogWindow(const LogWindow& window,
                          std::function<void(LogWindowEvent)> tell) override;

 private:
  Handle start(std::shared_ptr<DialogRun> run, const DialogRequest& request);

  MainLoop& mainLoop_;
  Clock& clock_;
  ProcessLauncher& launcher_;
  const std::string program_;
  const TakeToken takeActivationToken_;
};

/// Where zephyl-tray-dialogs is: beside the tray's executable, or in <prefix>/libexec/zephyl-tray.
std::string dialogsProgram(const Bundle& bundle);

}  // namespace zephyl
