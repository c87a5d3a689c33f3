#pragma once

#include <algorithm>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "Desktop/Dialogs.hpp"

namespace zephyl::test {

/// Dialogs that a test inspects and answers in place of the user.
class FakeDialogs final : public Dialogs {
 public:
  struct OpenAlert {
    Alert alert;
    std::function<void(std::optional<AlertAnswer>)> answer;
    int timesBroughtToFront = 0;
  };
  struct OpenLogWindow {
    LogWindow window;
    std::function<void(LogWindowEvent)> tell;
  };

  Handle presentAlert(const Alert& alert,
                      std::function<void(std::optional<AlertAnswer>)> done) override {
    return open(alerts_, {alert, std::move(done)});
  }
  Handle chooseFolder(const FolderRequest& request,
                      std::function<void(Result<std::optional<std::string>>)> done) override {
    folderRequests.push_back(request);
    return open(folderAnswers_, std::move(done));
  }
  Handle presentLogWindow(const LogWindow& window,
                          std::function<void(LogWindowEvent)> tell) override {
    return open(logWindows_, {window, std::move(tell)});
  }
  std::string consumeActivationToken() override { return std::exchange(activationToken, {}); }

  /// Returns the alerts on screen, oldest first.
  [[nodiscard]] std::vector<Alert> alerts() const {
    std::vector<Alert> all;
    for (const auto& each : alerts_) all.push_back(each->alert);
    return all;
  }
  [[nodiscard]] std::vector<LogWindow> logWindows() const {
    std::vector<LogWindow> all;
    for (const auto& each : logWindows_) all.push_back(each->window);
    return all;
  }

  /// Answers the newest alert with a button, which it must have, and closes it.
  void press(const std::string& button, const std::string& text = "") {
    const auto& buttons = alerts_.back()->alert.buttons;
    const auto found = std::ranges::find(buttons, button);
    ASSERT_NE(found, buttons.end()) << button;
    const auto place = static_cast<std::size_t>(found - buttons.begin());
    answer(AlertAnswer{.button = place, .text = text});
  }
  /// The newest alert could not be shown.
  void failToShow() { answer(std::nullopt); }
  void tellLogWindow(LogWindowEvent event) {
    const auto tell = logWindows_.back()->tell;
    tell(event);
  }

  /// Returns how often the newest alert was brought to the front.
  [[nodiscard]] int timesBroughtToFront() const { return alerts_.back()->timesBroughtToFront; }

  std::string activationToken;  ///< of the action that is being handled
  std::vector<FolderRequest> folderRequests;
  /// Answers the oldest folder request on screen.
  void folderAnswer(const Result<std::optional<std::string>>& answer) {
    const auto oldest = folderAnswers_.at(0);
    (*oldest)(answer);
  }
  [[nodiscard]] std::size_t openFolderQuestions() const { return folderAnswers_.size(); }

 private:
  using FolderAnswer = std::function<void(Result<std::optional<std::string>>)>;
  template <typename T>
  using List = std::vector<std::shared_ptr<T>>;

  /// Shows the dialog until its handle is destroyed.
  template <typename T>
  class Window final : public Dialog {
   public:
    Window() = default;
    Window(List<T>& list, std::shared_ptr<T> shown) : list_(&list), shown_(std::move(shown)) {}
    ~Window() override {
      if (list_ != nullptr) std::erase(*list_, shown_);
    }
    Window(const Window&) = delete;
    Window& operator=(const Window&) = delete;

    void showProgress(const Progress& progress) override {
      if constexpr (std::is_same_v<T, OpenAlert>) {
        if (shown_) shown_->alert.progress = progress;
      }
    }

    void bringToFront() override {
      if constexpr (std::is_same_v<T, OpenAlert>) {
        if (shown_) ++shown_->timesBroughtToFront;
      }
    }

   private:
    List<T>* list_ = nullptr;
    std::shared_ptr<T> shown_;
  };

  template <typename T>
  Handle open(List<T>& list, T shown) {
    list.push_back(std::make_shared<T>(std::move(shown)));
    return std::make_unique<Window<T>>(list, list.back());
  }
  void answer(std::optional<AlertAnswer> given) {
    const auto newest = alerts_.back();
    alerts_.pop_back();
    newest->answer(std::move(given));
  }

  List<OpenAlert> alerts_;
  List<OpenLogWindow> logWindows_;
  List<FolderAnswer> folderAnswers_;
};

}  // namespace zephyl::test
