// zephyl-tray-dialogs shows one window: an alert, a folder picker or a log. It reads what to show
// as a line of JSON on standard input and answers on standard output;
// Desktop/DialogMessages/DialogMessages.hpp says how. Its exit status is 0 when the window was
// shown and went as it should, 1 when there is nowhere to show it, 2 when the request makes no
// sense.

#include <QApplication>
#include <QIcon>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include <unistd.h>

#include "Helpers/Dialogs/Program/AlertWindow.hpp"
#include "Helpers/Dialogs/Program/Appearance.hpp"
#include "Helpers/Dialogs/Program/Conversation.hpp"
#include "Helpers/Dialogs/Program/FolderWindow.hpp"
#include "Helpers/Dialogs/Program/LogViewer.hpp"
#include "System/Processes/CoreDumps.hpp"

namespace zephyl {

namespace {

/// The toolkit would abort without a screen, which leaves a core dump for nothing.
void printMessage(QtMsgType type, const QMessageLogContext&, const QString& message) {
  if (type != QtDebugMsg) std::fprintf(stderr, "%s\n", message.toUtf8().constData());
  if (type == QtFatalMsg) ::_exit(EXIT_FAILURE);
}

/// The toolkit prefers X11 on some desktops that have both.
void preferWayland() {
  if (qEnvironmentVariableIsSet("WAYLAND_DISPLAY") && !qEnvironmentVariableIsSet("QT_QPA_PLATFORM"))
    qputenv("QT_QPA_PLATFORM", "wayland;xcb");
}

std::unique_ptr<DialogWindow> windowFor(const DialogRequest& request, Conversation& conversation) {
  const bool unrequested = request.unrequested.value_or(false);
  if (request.alert)
    return std::make_unique<AlertWindow>(conversation, *request.alert, unrequested);
  if (request.logWindow) {
    return std::make_unique<LogViewer>(conversation, *request.logWindow, unrequested);
  }
  return std::make_unique<FolderWindow>(conversation, *request.folderPicker);
}

int run(int& argumentCount, char** arguments) {
  qInstallMessageHandler(printMessage);
  preferWayland();
  const QApplication application(argumentCount, arguments);
  QApplication::setQuitOnLastWindowClosed(false);
  QGuiApplication::setDesktopFileName(QStringLiteral("com.zephyl.tray"));
  followColorScheme();
  QApplication::setWindowIcon(QIcon::fromTheme(QStringLiteral("com.zephyl.tray")));

  Conversation conversation;
  const auto request = conversation.readRequest();
  if (!request) {
    std::fprintf(stderr, "%s\n", request.error().message.c_str());
    return 2;
  }
  const auto window = windowFor(*request, conversation);
  window->present(request->unrequested.value_or(false));
  conversation.follow(
      {.close = [&] { window->dismiss(); },
       .progress = [&](const ProgressValue& progress) { window->showProgress(progress); },
       .bringToFront =
           [&](const BringToFrontOrder& order) { window->bringToFront(order.activationToken); }});
  return QApplication::exec();
}

}  // namespace

}  // namespace zephyl

int main(int argumentCount, char** arguments) {
  zephyl::coreDumps::disable();  // a typed key may be in its memory
  return zephyl::run(argumentCount, arguments);
}
