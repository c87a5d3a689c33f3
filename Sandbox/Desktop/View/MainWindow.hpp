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

/// The window: the servers on the left, a page on the right, the agent below, and a line above when
/// the tray is not there.
class MainWindow final : public QWidget {
 public:
  struct Events {
    /// The window appeared or disappeared, also by being minimized.
    std::function<void(bool visible)> visibilityChanged;
    std::function<void()> closed;
    /// The user wants the tray to open its window.
    std::function<void()> reconnect;
  };

  /// The model outlives the window.
  MainWindow(WindowModel& model, Events events);

  /// Shows what the model returns.
  void refresh();
  /// Brings the window to the front. The token, which may be empty, permits that.
  void present(const std::string& token);
  /// Whether the user has typed something that was not sent.
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
