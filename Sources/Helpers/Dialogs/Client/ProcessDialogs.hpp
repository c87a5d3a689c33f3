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

/// Dialogs as windows of zephyl-tray-dialogs, with one run of the program for each dialog. If the
/// toolkit crashes, only that window is lost. Failures of the program are logged.
///
/// If the window of an alert could not be shown, its answer is nullopt. If it was shown and then
/// lost, its answer is the safe button. In these cases a folder request fails with an error or
/// counts as cancelled.
class ProcessDialogs final : public Dialogs {
 public:
  /// As `Desktop::consumeActivationToken`. Not called for a window that the user did not request.
  using TokenSource = std::function<std::string()>;

  /// The first three objects must outlive it.
  ProcessDialogs(MainLoop& mainLoop, Clock& clock, ProcessLauncher& launcher, std::string program,
                 TokenSource tokenSource = {})
      : mainLoop_(mainLoop),
        clock_(clock),
        launcher_(launcher),
        program_(std::move(program)),
        tokenSource_(std::move(tokenSource)) {}

  Handle presentAlert(const Alert& alert,
                      std::function<void(std::optional<AlertAnswer>)> done) override;
  Handle chooseFolder(const FolderRequest& request,
                      std::function<void(Result<std::optional<std::string>>)> done) override;
  Handle presentLogWindow(const LogWindow& window,
                          std::function<void(LogWindowEvent)> notify) override;
  std::string consumeActivationToken() override { return tokenSource_ ? tokenSource_() : ""; }

 private:
  /// Starts the program with an activation token, which may be empty.
  Handle start(const DialogRequest& request, const std::string& token, DialogProcess::Owner owner);

  MainLoop& mainLoop_;
  Clock& clock_;
  ProcessLauncher& launcher_;
  const std::string program_;
  const TokenSource tokenSource_;
};

/// Returns the path of zephyl-tray-dialogs: beside the tray's executable, otherwise in
/// <prefix>/libexec/zephyl-tray.
std::string dialogsProgram(const Bundle& bundle);

}  // namespace zephyl
