#include "Desktop/View/MainWindow.hpp"

#include <QCloseEvent>
#include <QCoreApplication>
#include <QShortcut>
#include <utility>

namespace zephyl::sandbox::desktop {
namespace {

constexpr QSize windowSize{760, 560};
constexpr int bannerMargin = 8;

using Link = WindowModel::Link;

std::string textFor(Link link) {
  switch (link) {
    case Link::gone:
      return "Zephyl's tray is not running. Start it, and this window reconnects.";
    case Link::replaced:
      return "Zephyl's tray was started again. Reconnect to go on; what you have typed and not "
             "saved is lost.";
    case Link::absent:
      return "This window has no connection to Zephyl's tray. Close it, and choose “Open Zephyl” "
             "in "
             "the tray's menu.";
    case Link::waiting:
    case Link::answers:
      break;
  }
  return {};
}

}  // namespace

MainWindow::MainWindow(WindowModel& model, Events events)
    : model_(model),
      events_(std::move(events)),
      joinPage_(model),
      serverPage_(model),
      agentBar_(model) {
  setWindowTitle(QStringLiteral("Zephyl"));
  layout_.setContentsMargins(0, 0, 0, 0);
  layout_.setSpacing(0);
  addBanner();
  addContent();
  line_.setFrameShape(QFrame::HLine);
  line_.setFrameShadow(QFrame::Sunken);
  layout_.addWidget(&line_);
  layout_.addWidget(&agentBar_);
  addShortcuts();
  resize(windowSize);
  refresh();
}

void MainWindow::addBanner() {
  banner_.setAutoFillBackground(true);
  banner_.setBackgroundRole(QPalette::ToolTipBase);
  bannerText_.setForegroundRole(QPalette::ToolTipText);
  bannerLayout_.setContentsMargins(2 * bannerMargin, bannerMargin, 2 * bannerMargin, bannerMargin);
  bannerLayout_.addWidget(&bannerText_, 1);
  bannerLayout_.addWidget(&reconnect_);
  connect(&reconnect_, &QPushButton::clicked, this, [this] { events_.reconnect(); });
  layout_.addWidget(&banner_);
}

void MainWindow::addContent() {
  sidebar_.onServer = [this](const std::string& id) { model_.select(id); };
  sidebar_.onAdd = [this](bool chosen) {
    model_.showJoinPage();
    if (chosen) joinPage_.editKey();
  };
  pages_.addWidget(&noPage_);
  pages_.addWidget(&joinPage_);
  pages_.addWidget(&serverPage_);
  content_.setSpacing(0);
  content_.addWidget(&sidebar_);
  content_.addWidget(&pages_, 1);
  layout_.addLayout(&content_, 1);
}

void MainWindow::addShortcuts() {
  const auto bind = [this](const QKeySequence& keys, auto action) {
    auto shortcut = std::make_unique<QShortcut>(keys, this);
    connect(shortcut.get(), &QShortcut::activated, this, action);
    (void)shortcut.release();  // belongs to the window
  };
  bind(QKeySequence::Close, [this] { close(); });
  bind(QKeySequence::Quit, [] { QCoreApplication::exit(); });
}

void MainWindow::refresh() {
  showBanner();
  sidebar_.showServers(model_);
  showPage();
  agentBar_.showAgent();
  if (const auto focus = model_.takeFocus()) moveFocus(*focus);
}

void MainWindow::showBanner() {
  const auto linkText = textFor(model_.link());
  bannerText_.showText(linkText.empty() ? model_.notice() : linkText);
  reconnect_.setVisible(model_.link() == Link::replaced);
  banner_.setVisible(!bannerText_.isHidden());
}

void MainWindow::showPage() {
  joinPage_.showProgress();
  if (const auto* const server = model_.selected()) serverPage_.showServer(*server);
  QWidget* page = &noPage_;
  if (model_.page() == WindowModel::Page::join) page = &joinPage_;
  if (model_.page() == WindowModel::Page::server) page = &serverPage_;
  if (pages_.currentWidget() != page) pages_.setCurrentWidget(page);
}

void MainWindow::moveFocus(WindowModel::Focus focus) {
  switch (focus) {
    case WindowModel::Focus::inviteKey:
      return joinPage_.editKey();
    case WindowModel::Focus::servers:
      return sidebar_.setFocus(Qt::OtherFocusReason);
    case WindowModel::Focus::name:
      return serverPage_.editName();
    case WindowModel::Focus::removal:
      return serverPage_.confirmRemoval();
  }
}

void MainWindow::present(const std::string& token) {
  // The toolkit reads the token when it requests the activation.
  if (!token.empty()) qputenv("XDG_ACTIVATION_TOKEN", QByteArray::fromStdString(token));
  setWindowState(windowState() & ~Qt::WindowMinimized);
  show();
  raise();
  activateWindow();
}

void MainWindow::showEvent(QShowEvent* event) {
  QWidget::showEvent(event);
  events_.visibilityChanged(true);
}

void MainWindow::hideEvent(QHideEvent* event) {
  QWidget::hideEvent(event);
  events_.visibilityChanged(false);
}

void MainWindow::closeEvent(QCloseEvent* event) {
  QWidget::closeEvent(event);
  events_.closed();
}

}  // namespace zephyl::sandbox::desktop
