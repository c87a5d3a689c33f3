#pragma once

#include "Desktop/Dialogs.hpp"

namespace zephyl {

class MainLoop;

/// The dialogs of a machine without a screen. No dialog can be shown. The message of a log window
/// and the end of its log are written to the diagnostic log.
class HeadlessDialogs final : public Dialogs {
 public:
  explicit HeadlessDialogs(MainLoop& mainLoop) : mainLoop_(mainLoop) {}

  Handle presentAlert(const Alert& alert,
                      std::function<void(std::optional<AlertAnswer>)> done) override;
  Handle chooseFolder(const FolderRequest& request,
                      std::function<void(Result<std::optional<std::string>>)> done) override;
  Handle presentLogWindow(const LogWindow& window,
                          std::function<void(LogWindowEvent)> notify) override;

 private:
  MainLoop& mainLoop_;
};

/// Writes the content of a log window that cannot be shown to the diagnostic log.
void logInsteadOfWindow(const LogWindow& window);

}  // namespace zephyl
