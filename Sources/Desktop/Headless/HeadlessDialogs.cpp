#include "Desktop/Headless/HeadlessDialogs.hpp"

#include <algorithm>
#include <utility>

#include "System/Concurrency/MainLoop.hpp"
#include "System/Data/Text.hpp"
#include "System/Files/Log.hpp"

namespace zephyl {

namespace {

constexpr std::size_t shownLogLines = 12;

/// Calls `answer` later on the main loop, unless the dialog was destroyed by then.
template <typename Answer>
std::unique_ptr<Dialog> answerLater(MainLoop& mainLoop, Answer answer) {
  class Pending final : public Dialog {
   public:
    const std::shared_ptr<bool> open = std::make_shared<bool>(true);
    ~Pending() override { *open = false; }
  };
  auto dialog = std::make_unique<Pending>();
  mainLoop.async([open = dialog->open, answer = std::move(answer)] {
    if (*open) answer();
  });
  return dialog;
}

}  // namespace

Dialogs::Handle HeadlessDialogs::presentAlert(
    const Alert&, std::function<void(std::optional<AlertAnswer>)> done) {
  return answerLater(mainLoop_, [done = std::move(done)] { done(std::nullopt); });
}

Dialogs::Handle HeadlessDialogs::chooseFolder(
    const FolderRequest&, std::function<void(Result<std::optional<std::string>>)> done) {
  return answerLater(mainLoop_, [done = std::move(done)] {
    done(Error{"There is no desktop to choose a folder on."});
  });
}

Dialogs::Handle HeadlessDialogs::presentLogWindow(const LogWindow& window,
                                                  std::function<void(LogWindowEvent)> notify) {
  logInsteadOfWindow(window);
  return answerLater(mainLoop_, [notify = std::move(notify)] { notify(LogWindowEvent::closed); });
}

void logInsteadOfWindow(const LogWindow& window) {
  log("{}: {}", window.title, window.message);
  const auto lines = splitNonEmpty(window.fullText, '\n');
  const std::size_t skipped = lines.size() - std::min(lines.size(), shownLogLines);
  for (std::size_t i = skipped; i < lines.size(); ++i) log("  | {}", lines[i]);
}

}  // namespace zephyl
