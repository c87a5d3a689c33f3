// zephyl-tray-dialogs shows one window: an alert, a folder picker or a log. It reads the request as
// a line of JSON on standard input and answers on standard output, as described in
// Helpers/Dialogs/Protocol/DialogMessages.hpp. Its exit status is 0 if the window was shown and
// closed, 1 if there is no display, 2 if the request is invalid.

#include <QApplication>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "Helpers/Dialogs/Program/AlertWindow.hpp"
#include "Helpers/Dialogs/Program/Appearance.hpp"
#include "Helpers/Dialogs/Program/Conversation.hpp"
#include "Helpers/Dialogs/Program/FolderWindow.hpp"
#include "Helpers/Dialogs/Program/LogViewer.hpp"
#include "Helpers/Dialogs/Program/Toolkit.hpp"
#include "System/Data/Overloaded.hpp"
#include "System/Processes/CoreDumps.hpp"

namespace zephyl {

namespace {

using Window = std::unique_ptr<DialogWindow>;

Window windowFor(const DialogRequest& request, Conversation& conversation) {
  return std::visit(Overloaded{[&](const Alert& alert) -> Window {
                                 return std::make_unique<AlertWindow>(conversation, alert);
                               },
                               [&](const FolderRequest& folder) -> Window {
                                 return std::make_unique<FolderWindow>(conversation, folder);
                               },
                               [&](const LogWindow& log) -> Window {
                                 return std::make_unique<LogViewer>(conversation, log);
                               }},
                    request);
}

/// The tray requests a folder only when the user wants to share one.
bool isRequestedByUser(const DialogRequest& request) {
  return std::visit(Overloaded{[](const FolderRequest&) { return true; },
                               [](const auto& each) { return each.requestedByUser; }},
                    request);
}

int run(int& argumentCount, char** arguments) {
  prepareToolkit();
  const QApplication application(argumentCount, arguments);
  QApplication::setQuitOnLastWindowClosed(false);
  // The texts are English. In a mirrored window an ellipsis would precede its words.
  QGuiApplication::setLayoutDirection(Qt::LeftToRight);
  QGuiApplication::setDesktopFileName(QStringLiteral("com.zephyl.tray"));
  followColorScheme();
  QApplication::setWindowIcon(applicationIcon());

  Conversation conversation;
  const auto request = conversation.readRequest();
  if (!request) {
    std::fprintf(stderr, "%s\n", request.error().message.c_str());
    return 2;
  }
  const auto window = windowFor(*request, conversation);
  window->present(isRequestedByUser(*request));
  conversation.follow(
      {.close = [&] { window->dismiss(); },
       .progress = [&](const Progress& progress) { window->showProgress(progress); },
       .bringToFront =
           [&](const BringToFront& order) { window->bringToFront(order.activationToken); }});
  const int status = QApplication::exec();
  // Qt 6.4 can wait for its Wayland thread forever when the application object is destroyed. All
  // reports have been written.
  if (QGuiApplication::platformName().startsWith(QStringLiteral("wayland"))) std::_Exit(status);
  return status;
}

}  // namespace

}  // namespace zephyl

int main(int argumentCount, char** arguments) {
  zephyl::coreDumps::disable();  // its memory may contain a typed key
  return zephyl::run(argumentCount, arguments);
}
