#pragma once

#include <QFrame>
#include <QHBoxLayout>
#include <QPushButton>
#include <QStackedWidget>
#include <QVBoxLayout>
#include <QWidget>
#include <functional>
#include <string>

#include "Desktop/Model/WindowModel.hpp"
#include "Desktop/View/AgentBar.hpp"
#include "Desktop/View/JoinPage.hpp"
#include "Desktop/View/ServerPage.hpp"
#include "Desktop/View/ServerSidebar.hpp"

namespace zephyl::sandbox::desktop {

/// The window: the servers on the left, a page on the right, the agent below, and a line above if
/// the tray is unreachable.
class MainWindow final : public QWidget {
 public:
  struct Events {
    /// The window became visible or invisible. A minimized window is invisible.
    std::function<void(bool visible)> visibilityChanged;
    std::function<void()> closed;
    /// The user asks the tray to open its window.
    std::function<void()> reconnect;
  };

  /// The model must outlive the window.
  MainWindow(WindowModel& model, Events events);

  /// Shows the state of the model.
  void refresh();
  /// Brings the window to the front. The token, which may be empty, permits that.
  void present(const std::string& token);
  /// Returns whether there is typed text that was not sent.
  [[nodiscard]] bool hasTypedText() const {
    return serverPage_.hasTypedText() || joinPage_.hasTypedText();
  }

 protected:
  void showEvent(QShowEvent* event) override;
  void hideEvent(QHideEvent* event) override;
  void closeEvent(QCloseEvent* event) override;

 private:
  void addBanner();
  void addContent();
  void addShortcuts();
  void showBanner();
  void showPage();
  void moveFocus(WindowModel::Focus focus);

  WindowModel& model_;
  const Events events_;
  QVBoxLayout layout_{this};
  QFrame banner_;
  QHBoxLayout bannerLayout_{&banner_};
  TextLabel bannerText_;
  QPushButton reconnect_{QStringLiteral("Re&connect")};
  QHBoxLayout content_;
  ServerSidebar sidebar_;
  QStackedWidget pages_;
  QWidget noPage_;
  JoinPage joinPage_;
  ServerPage serverPage_;
  QFrame line_;
  AgentBar agentBar_;
};

}  // namespace zephyl::sandbox::desktop
