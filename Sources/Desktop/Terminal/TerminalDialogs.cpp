#include "Desktop/Terminal/TerminalDialogs.hpp"

#include <utility>

#include "Desktop/Terminal/TerminalScreen.hpp"
#include "System/Data/Text.hpp"
#include "System/Files/Directories.hpp"
#include "System/Files/Files.hpp"

namespace zephyl {

namespace {

class OpenDialog final : public Dialog {
 public:
  OpenDialog(std::weak_ptr<TerminalScreen> screen, DialogStack::Number number)
      : screen_(std::move(screen)), number_(number) {}
  ~OpenDialog() override {
    if (const auto screen = screen_.lock()) screen->close(number_);
  }
  OpenDialog(const OpenDialog&) = delete;
  OpenDialog& operator=(const OpenDialog&) = delete;

  void showProgress(const Progress& progress) override {
    if (const auto screen = screen_.lock()) screen->showProgress(number_, progress);
  }

 private:
  const std::weak_ptr<TerminalScreen> screen_;
  const DialogStack::Number number_;
};

/// Expands a typed path: `~` and relative paths refer to the home directory.
std::string expandedPath(std::string_view typed) {
  typed = trimmed(typed);
  if (typed.starts_with('/')) {
    while (typed.size() > 1 && typed.ends_with('/')) typed.remove_suffix(1);
    return std::string(typed);
  }
  if (typed.starts_with('~')) typed.remove_prefix(1);
  while (typed.starts_with('/')) typed.remove_prefix(1);
  while (typed.ends_with('/')) typed.remove_suffix(1);
  return joinPath(directories::home(), typed);
}

/// Asks for a path until it is the path of a folder.
class FolderQuestion final : public Dialog {
 public:
  using Done = std::function<void(Result<std::optional<std::string>>)>;

  FolderQuestion(std::weak_ptr<TerminalScreen> screen, FolderRequest request, Done done)
      : screen_(std::move(screen)),
        state_(std::make_shared<State>(std::move(request), std::move(done))) {
    ask(screen_, state_, directories::home() + "/", "");
  }
  ~FolderQuestion() override {
    if (const auto screen = screen_.lock()) screen->close(state_->number);
  }

 private:
  struct State {
    State(FolderRequest asked, Done whenDone)
        : request(std::move(asked)), done(std::move(whenDone)) {}

    const FolderRequest request;
    const Done done;
    DialogStack::Number number = 0;
  };

  static void ask(const std::weak_ptr<TerminalScreen>& weakScreen,
                  const std::shared_ptr<State>& state, const std::string& text,
                  const std::string& problem) {
    const auto screen = weakScreen.lock();
    if (!screen) return;
    state->number = screen->presentAlert(
        {.heading = state->request.message,
         .explanation = problem,
         .buttons = {state->request.prompt, "Cancel"},
         .safeButton = 1,
         .textField = Alert::TextField{.placeholder = "~/src/project"},
         .requestedByUser = true},
        text, [weakScreen, weak = std::weak_ptr(state)](const std::optional<AlertAnswer>& answer) {
          if (const auto asked = weak.lock()) handle(weakScreen, asked, answer);
        });
  }

  static void handle(const std::weak_ptr<TerminalScreen>& screen,
                     const std::shared_ptr<State>& state,
                     const std::optional<AlertAnswer>& answer) {
    if (!answer) return state->done(Error{"The terminal was closed before a folder was chosen."});
    if (answer->button != 0) return state->done(std::optional<std::string>());
    const auto path = expandedPath(answer->text);
    if (isDirectory(path)) return state->done(std::optional(path));
    ask(screen, state, std::string(answer->text), path + " is not a folder.");
  }

  const std::weak_ptr<TerminalScreen> screen_;
  const std::shared_ptr<State> state_;
};

}  // namespace

Dialogs::Handle TerminalDialogs::presentAlert(
    const Alert& alert, std::function<void(std::optional<AlertAnswer>)> done) {
  const auto screen = screen_.lock();
  if (!screen) return headless_.presentAlert(alert, std::move(done));
  return std::make_unique<OpenDialog>(screen, screen->presentAlert(alert, "", std::move(done)));
}

Dialogs::Handle TerminalDialogs::chooseFolder(
    const FolderRequest& request, std::function<void(Result<std::optional<std::string>>)> done) {
  const auto screen = screen_.lock();
  if (!screen) return headless_.chooseFolder(request, std::move(done));
  return std::make_unique<FolderQuestion>(screen, request, std::move(done));
}

Dialogs::Handle TerminalDialogs::presentLogWindow(const LogWindow& window,
                                                  std::function<void(LogWindowEvent)> notify) {
  const auto screen = screen_.lock();
  if (!screen) return headless_.presentLogWindow(window, std::move(notify));
  return std::make_unique<OpenDialog>(screen, screen->presentLog(window, std::move(notify)));
}

}  // namespace zephyl
