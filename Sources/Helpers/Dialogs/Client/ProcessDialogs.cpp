#include "Helpers/Dialogs/Client/ProcessDialogs.hpp"

#include <filesystem>
#include <utility>

#include <unistd.h>

#include "Desktop/Headless/HeadlessDialogs.hpp"
#include "Helpers/Dialogs/Client/DialogProcess.hpp"
#include "System/Data/Text.hpp"
#include "System/Files/Bundle.hpp"

namespace zephyl {

namespace {

using Step = DialogProcess::Step;
using MaybeStep = std::optional<Step>;

/// Replaces text that is not valid UTF-8, which JSON cannot represent.
void makeValid(std::string& text) {
  if (!isValidUTF8(text)) text = visibleLines(text);
}

Progress valid(Progress progress) {
  makeValid(progress.text);
  return progress;
}

Alert valid(Alert alert) {
  makeValid(alert.heading);
  makeValid(alert.explanation);
  for (auto& button : alert.buttons) makeValid(button);
  if (alert.textField) makeValid(alert.textField->placeholder);
  if (alert.progress) makeValid(alert.progress->text);
  return alert;
}

FolderRequest valid(FolderRequest request) {
  makeValid(request.prompt);
  makeValid(request.message);
  return request;
}

LogWindow valid(LogWindow window) {
  for (auto* text : {&window.title, &window.message, &window.shownText, &window.fullText}) {
    makeValid(*text);
  }
  return window;
}

/// A handle that closes its window in the destructor.
class ProcessDialog final : public Dialog {
 public:
  ProcessDialog(std::shared_ptr<DialogProcess> process, ProcessDialogs::TokenSource tokenSource)
      : process_(std::move(process)), tokenSource_(std::move(tokenSource)) {}
  ~ProcessDialog() override { process_->close(); }
  ProcessDialog(const ProcessDialog&) = delete;
  ProcessDialog& operator=(const ProcessDialog&) = delete;

  void showProgress(const Progress& progress) override { process_->send(valid(progress)); }

  void bringToFront() override { process_->send(BringToFront{tokenSource_ ? tokenSource_() : ""}); }

 private:
  const std::shared_ptr<DialogProcess> process_;
  const ProcessDialogs::TokenSource tokenSource_;
};

}  // namespace

Dialogs::Handle ProcessDialogs::presentAlert(const Alert& alert,
                                             std::function<void(std::optional<AlertAnswer>)> done) {
  DialogProcess::Owner owner;
  owner.interpret = [done, count = alert.buttons.size()](DialogReport& report) -> MaybeStep {
    auto* const answer = std::get_if<AlertAnswer>(&report);
    if (answer == nullptr || answer->button >= count) return std::nullopt;
    return Step{true, [done, answer = std::move(*answer)]() mutable { done(std::move(answer)); }};
  };
  owner.failed = [done, safe = alert.safeButton](bool wasShown) {
    done(wasShown ? std::optional(AlertAnswer{.button = safe}) : std::nullopt);
  };
  auto token = alert.activationToken;
  // A token belongs to an action of the user, which did not cause an unrequested window.
  if (token.empty() && alert.requestedByUser) token = consumeActivationToken();
  return start(valid(alert), token, std::move(owner));
}

Dialogs::Handle ProcessDialogs::chooseFolder(
    const FolderRequest& request, std::function<void(Result<std::optional<std::string>>)> done) {
  DialogProcess::Owner owner;
  owner.interpret = [done](DialogReport& report) -> MaybeStep {
    auto* const chosen = std::get_if<ChosenFolder>(&report);
    if (chosen == nullptr) return std::nullopt;
    return Step{true, [done, path = std::move(chosen->value)] {
                  done(path.empty() ? std::nullopt : std::optional(path));
                }};
  };
  owner.failed = [done](bool wasShown) {
    if (wasShown) return done(std::optional<std::string>());
    done(Error{"The folder picker could not be shown."});
  };
  return start(valid(request), consumeActivationToken(), std::move(owner));
}

Dialogs::Handle ProcessDialogs::presentLogWindow(const LogWindow& window,
                                                 std::function<void(LogWindowEvent)> notify) {
  DialogProcess::Owner owner;
  owner.interpret = [notify](DialogReport& report) -> MaybeStep {
    const auto* const event = std::get_if<LogWindowEvent>(&report);
    if (event == nullptr) return std::nullopt;
    return Step{*event == LogWindowEvent::closed, [notify, event = *event] { notify(event); }};
  };
  owner.failed = [notify, window](bool wasShown) {
    if (!wasShown) logInsteadOfWindow(window);
    notify(LogWindowEvent::closed);
  };
  return start(valid(window), window.requestedByUser ? consumeActivationToken() : "",
               std::move(owner));
}

Dialogs::Handle ProcessDialogs::start(const DialogRequest& request, const std::string& token,
                                      DialogProcess::Owner owner) {
  auto process = std::make_shared<DialogProcess>(mainLoop_, clock_, std::move(owner));
  process->start(launcher_, program_, request, token);
  return std::make_unique<ProcessDialog>(std::move(process), tokenSource_);
}

std::string dialogsProgram(const Bundle& bundle) {
  constexpr auto name = "zephyl-tray-dialogs";
  const auto directory = std::filesystem::path(bundle.executable().value_or("")).parent_path();
  const auto beside = directory / name;
  if (::access(beside.c_str(), X_OK) == 0) return beside;
  return directory.parent_path() / "libexec/zephyl-tray" / name;
}

}  // namespace zephyl
