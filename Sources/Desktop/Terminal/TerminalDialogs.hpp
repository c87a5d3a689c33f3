#pragma once

#include <memory>

#include "Desktop/Dialogs.hpp"
#include "Desktop/Headless/HeadlessDialogs.hpp"

namespace zephyl {

class TerminalScreen;

/// Dialogs as boxes on the terminal's screen. After the terminal was closed, headless dialogs.
class TerminalDialogs final : public Dialogs {
 public:
  /// `mainLoop` must outlive it. The screen may be destroyed earlier.
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
