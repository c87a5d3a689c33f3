#pragma once

#include <functional>
#include <memory>
#include <string>

#include "Helpers/Updates/Protocol/UpdateMessages.hpp"
#include "System/Processes/ChildProcess.hpp"

namespace zephyl {

class MainLoop;

/// One run of zephyl-tray-updater: a command and the reports on it. Destroying it ends the
/// program's input, which cancels a check or a download; nothing is told any more. Main thread.
class UpdaterRun : public std::enable_shared_from_this<UpdaterRun> {
 public:
  /// Called on the main thread, later: with each report, `failed` also when the program could not
  /// be run or ended without having said how it went. One that is no progress is the last.
  using Tell = std::function<void(UpdateReport)>;

  /// `mainLoop` outlives it.
  static std::shared_ptr<UpdaterRun> start(MainLoop& mainLoop, ProcessLauncher& launcher,
                                           const std::string& program, const UpdateCommand& command,
                                           Tell tell);

  UpdaterRun(MainLoop& mainLoop, Tell tell) : mainLoop_(mainLoop), tell_(std::move(tell)) {}
  ~UpdaterRun();
  UpdaterRun(const UpdaterRun&) = delete;
  UpdaterRun& operator=(const UpdaterRun&) = delete;

 private:
  void launch(ProcessLauncher& launcher, const std::string& program, const UpdateCommand& command);
  void takeLine(const std::string& line);
  void fail(const std::string& reason);

  MainLoop& mainLoop_;
  Tell tell_;
  std::shared_ptr<ChildProcess> child_;
};

/// What every run of the program has in common: it outlives the tray, is given its command on
/// standard input, and its output goes where the tray's goes unless that is changed.
ProcessOptions updaterOptions(const std::string& program);

}  // namespace zephyl
