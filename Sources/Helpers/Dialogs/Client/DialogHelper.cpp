#include "Helpers/Dialogs/Client/DialogHelper.hpp"

#include <filesystem>
#include <utility>

#include <unistd.h>

#include "Desktop/Headless/HeadlessDialogs.hpp"
#include "Helpers/Dialogs/Client/DialogRun.hpp"
#include "System/Data/Text.hpp"
#include "System/Files/Bundle.hpp"

namespace zephyl {

namespace {

using Step = DialogRun::Step;
using MaybeStep = std::optional<Step>;

/// JSON carries nothing but UTF-8.
std::string carried(const std::string& text) {
  return isValidUTF8(text) ? text : visibleLines(text);
}

ProgressValue valueOf(const Progress& progress) {
  return {progress.fraction, carried(progress.text)};
}

/// Closes its window when it is destroyed.
class RunHandle final : public Dialog {
 public:
  RunHandle(std::shared_ptr<DialogRun> run, DialogHelper::TakeToken takeActivationToken)
      : run_(std::move(run)), takeActivationToken_(std::move(takeActivationToken)) {}
  ~RunHandle() override { run_->close(); }
  RunHandle(const RunHandle&) = delete;
  RunHandle& operator=(const RunHandle&) = delete;

  void showProgress(const Progress& progress) override {
    run_->order({.progress = valueOf(progress)});
  }

  void bringToFront() override {
    run_->order({.bringToFront = BringToFrontOrder{
                     .activationToken = takeActivationToken_ ? takeActivationToken_() : ""}});
  }

 private:
  const std::shared_ptr<DialogRun> run_;
  const DialogHelper::TakeToken takeActivationToken_;
};

AlertRequest::Style styleOf(Alert::Style style) {
  switch (style) {
    case Alert::Style::critical:
      return AlertRequest::Style::critical;
    case Alert::Style::question:
      return AlertRequest::Style::question;
    case Alert::Style::information:
      return AlertRequest::Style::information;
    case Alert::Style::warning:
      break;
  }
  return AlertRequest::Style::warning;
}

AlertRequest requestFor(const Alert& alert) {
  AlertRequest request{
      .style = styleOf(alert.style),
      .messageText = carried(alert.messageText),
      .informativeText = carried(alert.informativeText),
      .safeButton = static_cast<std::int64_t>(alert.safeButton),
  };
  for (const auto& button : alert.buttons) request.buttons.push_back(carried(button));
  if (!alert.permittingButtons.empty()) {
    request.permittingButtons.emplace(alert.permittingButtons.begin(),
                                      alert.permittingButtons.end());
  }
  if (alert.textField) {
    request.textField = {carried(alert.textField->placeholder), alert.textField->width};
  }
  if (alert.progress) request.progress = valueOf(*alert.progress);
  return request;
}

/// A field that is present only if it is true.
std::optional<bool> unless(bool condition) {
  return condition ? std::nullopt : std::optional(true);
}

LogWindowEvent eventOf(DialogReport::LogEvent event) {
  switch (event) {
    case DialogReport::LogEvent::openInCursor:
      return LogWindowEvent::openInCursor;
    case DialogReport::LogEvent::openInVSCode:
      return LogWindowEvent::openInVSCode;
    case DialogReport::LogEvent::openInTextEdit:
      return LogWindowEvent::openInTextEdit;
    case DialogReport::LogEvent::closed:
      break;
  }
  return LogWindowEvent::closed;
}

}  // namespace

Dialogs::Handle DialogHelper::presentAlert(const Alert& alert,
                                           std::function<void(std::optional<AlertAnswer>)> done) {
  DialogRun::Owner owner;
  owner.interpret = [done, count = alert.buttons.size()](DialogReport& report) -> MaybeStep {
    if (!report.answer) return std::nullopt;
    const auto button = static_cast<std::size_t>(report.answer->button);
    if (button >= count) return std::nullopt;
    AlertAnswer answer{button, std::move(report.answer->text)};
    return Step{true, [done, answer = std::move(answer)]() mutable { done(std::move(answer)); }};
  };
  owner.failed = [done, safe = alert.safeButton](bool wasShown) {
    done(wasShown ? std::optional(AlertAnswer{.button = safe}) : std::nullopt);
  };
  auto run = std::make_shared<DialogRun>(mainLoop_, clock_, launcher_, std::move(owner));
  return start(std::move(run),
               {.alert = requestFor(alert), .unrequested = unless(alert.requestedByUser)});
}

Dialogs::Handle DialogHelper::chooseFolder(
    const FolderRequest& request, std::function<void(Result<std::optional<std::string>>)> done) {
  DialogRun::Owner owner;
  owner.interpret = [done](DialogReport& report) -> MaybeStep {
    if (!report.folder) return std::nullopt;
    return Step{true, [done, folder = std::move(*report.folder)] {
                  done(folder.empty() ? std::nullopt : std::optional(folder));
                }};
  };
  owner.failed = [done](bool wasShown) {
    if (wasShown) return done(std::optional<std::string>());
    done(Error{"The folder picker could not be shown."});
  };
  auto run = std::make_shared<DialogRun>(mainLoop_, clock_, launcher_, std::move(owner));
  return start(std::move(run), {.folderPicker = FolderPickerRequest{carried(request.prompt),
                                                                    carried(request.message)}});
}

Dialogs::Handle DialogHelper::presentLogWindow(const LogWindow& window,
                                               std::function<void(LogWindowEvent)> tell) {
  DialogRun::Owner owner;
  owner.interpret = [tell](DialogReport& report) -> MaybeStep {
    if (!report.logEvent) return std::nullopt;
    const auto event = eventOf(*report.logEvent);
    return Step{event == LogWindowEvent::closed, [tell, event] { tell(event); }};
  };
  owner.failed = [tell, window](bool wasShown) {
    if (!wasShown) logInsteadOfWindow(window);
    tell(LogWindowEvent::closed);
  };
  auto run = std::make_shared<DialogRun>(mainLoop_, clock_, launcher_, std::move(owner));
  return start(std::move(run),
               {.logWindow = LogWindowRequest{carried(window.title), carried(window.message),
                                              carried(window.shownText), carried(window.fullText)},
                .unrequested = unless(window.requestedByUser)});
}

Dialogs::Handle DialogHelper::start(std::shared_ptr<DialogRun> run, const DialogRequest& request) {
  // A token belongs to what the user did, which has nothing to do with an unrequested window.
  const bool usesToken = takeActivationToken_ && !request.unrequested;
  run->start(program_, request, usesToken ? takeActivationToken_() : "");
  return std::make_unique<RunHandle>(std::move(run), takeActivationToken_);
}

std::string dialogsProgram(const Bundle& bundle) {
  constexpr auto name = "zephyl-tray-dialogs";
  const auto directory = std::filesystem::path(bundle.executable().value_or("")).parent_path();
  const auto beside = directory / name;
  if (::access(beside.c_str(), X_OK) == 0) return beside;
  return directory.parent_path() / "libexec/zephyl-tray" / name;
}

}  // namespace zephyl
