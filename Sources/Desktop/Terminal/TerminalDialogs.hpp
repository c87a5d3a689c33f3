#pragma once

#include <memory>

#include "Desktop/Dialogs.hpp"
#include "Desktop/Headless/HeadlessDialogs.hpp"

namespace zephyl {

class TerminalScreen;

/// Dialogs as boxes on the terminal's screen, and once that is gone, those of a machine without
/// one.
class TerminalDialogs final : public Dialogs {
 public:
  /// The main loop outlives it; the screen may go.
  TerminalDialogs(MainLoop& mainLoop, std::weak_ptr<TerminalScreen> screen)
      : screen_(std::move(screen)), headless_(mainLoop) {}

  Handle presentAlert(const Alert& alert,
                      std::function<void(std::optional<AlertAnswer>)> done) override;
  Handle chooseFolder(const FolderRequest& request,
                      std::function<void(Result<std::optional<std::string>>)> done) override;
  Handle presentLogWindow(const LogWindow& window,
                          std::function<void(LogWindowEvent)> notify) override;

 private:
  std::weak_ptr<TerminalScreen> screen_;
  HeadlessDialogs headless_;
};

}  // namespace zephyl
