#include "Desktop/View/WindowProgram.hpp"

#include <QApplication>
#include <QIcon>
#include <QTimer>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <utility>

#include "Common/Log.hpp"
#include "Desktop/View/MainWindow.hpp"
#include "Desktop/View/Screen.hpp"
#include "Desktop/View/TrayLink.hpp"
#include "Desktop/View/WindowBus.hpp"
#include "Helpers/Dialogs/Program/Appearance.hpp"
#include "Helpers/Dialogs/Program/Toolkit.hpp"
#include "System/Files/Environment.hpp"

namespace zephyl::sandbox::desktop {
namespace {

constexpr std::chrono::seconds pollInterval(1);

/// Owns and connects the parts of the program. The model sends requests through the link, the
/// window shows the model, and the bus brings the window to the front.
class WindowProgram {
 public:
  explicit WindowProgram(std::optional<TrayAccess> access);

  /// Shows the window, or brings an existing one to the front.
  void start();

 private:
  void begin();
  void pollWhile(bool visible);
  void windowClosed();
  void modelChanged();
  void activate(const std::string& token);
  void reconnect();

  std::unique_ptr<TrayLink> link_;
  WindowModel model_;
  MainWindow window_;
  WindowBus bus_;
  QTimer polls_;
  const std::string startToken_ = environmentVariable("XDG_ACTIVATION_TOKEN").value_or("");
  bool begun_ = false;
  bool reconnecting_ = false;
};

std::unique_ptr<TrayLink> linkTo(std::optional<TrayAccess> access, TrayLink::Events events) {
  if (!access) return nullptr;
  return std::make_unique<TrayLink>(*std::move(access), std::move(events));
}

WindowProgram::WindowProgram(std::optional<TrayAccess> access)
    : link_(linkTo(std::move(access),
                   {.route = [this](const std::string& route) { model_.open(route); },
                    .ended = [] { QCoreApplication::exit(); }})),
      model_({.ask =
                  [this](const Request& request, auto answered) {
                    if (link_) link_->ask(request, std::move(answered));
                  },
              .changed = [this] { modelChanged(); }}),
      window_(model_, {.visibilityChanged = [this](bool visible) { pollWhile(visible); },
                       .closed = [this] { windowClosed(); },
                       .reconnect = [this] { reconnect(); }}),
      bus_([this](const std::string& token) { activate(token); }) {
  polls_.setInterval(pollInterval);
  QObject::connect(&polls_, &QTimer::timeout, &polls_, [this] { model_.refresh(); });
  if (!link_) model_.setAbsent();
}

void WindowProgram::start() {
  bus_.requestName([this](WindowBus::Name name) {
    if (name != WindowBus::Name::takenByAnother) return begin();
    bus_.activateOther(startToken_, [] { QCoreApplication::exit(); });
  });
}

void WindowProgram::begin() {
  begun_ = true;
  if (environmentVariable("ZEPHYL_ONBOARD") == "1") model_.open("join");
  if (link_) {
    if (const auto started = link_->start(); !started) {
      log("zephyl-desktop: no commands are accepted: {}", started.error().message);
    }
  }
  window_.present({});
}

void WindowProgram::pollWhile(bool visible) {
  if (!visible) return polls_.stop();
  polls_.start();
  model_.refresh();
}

/// Ends the program unless the window can be shown again and is connected.
void WindowProgram::windowClosed() {
  const bool isUseful = model_.link() == WindowModel::Link::answers;
  if (!isUseful || !bus_.ownsName()) QCoreApplication::exit();
}

void WindowProgram::modelChanged() {
  window_.refresh();
  const bool isReplaced = model_.link() == WindowModel::Link::replaced;
  if (isReplaced && model_.wasConnected() && !window_.hasTypedText()) reconnect();
}

void WindowProgram::activate(const std::string& token) {
  if (!begun_) return;
  window_.present(token);
  model_.refresh();
}

/// Replaces this window by one of the new tray, because a tray accepts only a window that it has
/// started.
void WindowProgram::reconnect() {
  if (std::exchange(reconnecting_, true)) return;
  bus_.findTray([this](bool found) {
    if (!found) {
      reconnecting_ = false;
      return;
    }
    link_.reset();  // frees the socket for the new window
    model_.setAbsent();
    bus_.askTrayForWindow([](bool asked) {
      if (asked) QCoreApplication::exit();
    });
  });
}

int show(std::optional<TrayAccess> access) {
  WindowProgram program(std::move(access));
  program.start();
  return QApplication::exec();
}

}  // namespace

bool canShowWindow() {
  return isScreenReachable();
}

int runWindow(int argumentCount, char** arguments, std::optional<TrayAccess> access) {
  std::signal(SIGPIPE, SIG_IGN);
  prepareToolkit();
  const QApplication application(argumentCount, arguments);
  QApplication::setQuitOnLastWindowClosed(false);
  QGuiApplication::setDesktopFileName(QStringLiteral("com.zephyl.desktop"));
  followColorScheme();
  QApplication::setWindowIcon(QIcon::fromTheme(QStringLiteral("com.zephyl.tray")));
  const int status = show(std::move(access));
  // Qt 6.4 can wait for its Wayland thread forever when the application object is destroyed.
  if (QGuiApplication::platformName().startsWith(QStringLiteral("wayland"))) std::_Exit(status);
  return status;
}

}  // namespace zephyl::sandbox::desktop
