#pragma once

#include <functional>
#include <string>
#include <utility>

#include "Desktop/Dialogs.hpp"
#include "Helpers/Dialogs/Client/DialogProcess.hpp"
#include "System/Concurrency/Clock.hpp"
#include "System/Processes/ChildProcess.hpp"

namespace zephyl {

class Bundle;
class MainLoop;

/// Dialogs as windows of zephyl-tray-dialogs, one run of it for each dialog. If the toolkit
/// crashes, only that window is lost. Failures of the program are logged.
///
/// An alert whose window was never shown is answered with nullopt; one that was shown and then
/// lost, with its safe button. A folder question is answered with an error, or as cancelled.
class ProcessDialogs final : public Dialogs {
 public:
  /// Returns and forgets the token that permits the window of the user's latest action to come to
  /// the front; empty if there is no such token. Not called for a window that the user did not
  /// request.
  using TakeToken = std::function<std::string()>;

  /// The first three outlive it.
  ProcessDialogs(MainLoop& mainLoop, Clock& clock, ProcessLauncher& launcher, std::string program,
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
                          std::function<void(LogWindowEvent)> notify) override;

 private:
  Handle start(const DialogRequest& request, bool requestedByUser, DialogProcess::Owner owner);

  MainLoop& mainLoop_;
  Clock& clock_;
  ProcessLauncher& launcher_;
  const std::string program_;
  const TakeToken takeActivationToken_;
};

/// Returns the path of zephyl-tray-dialogs: beside the tray's executable, otherwise in
/// <prefix>/libexec/zephyl-tray.
std::string dialogsProgram(const Bundle& bundle);

}  // namespace zephyl
