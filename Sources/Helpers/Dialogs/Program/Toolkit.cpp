#include "Helpers/Dialogs/Program/Toolkit.hpp"

#include <QString>
#include <QtGlobal>
#include <cstdio>
#include <cstdlib>

#include <unistd.h>

namespace zephyl {

namespace {

/// Ends the process on a fatal message. The toolkit would abort, which leaves a core dump.
void printMessage(QtMsgType type, const QMessageLogContext&, const QString& message) {
  if (type != QtDebugMsg) std::fprintf(stderr, "%s\n", message.toUtf8().constData());
  if (type == QtFatalMsg) ::_exit(EXIT_FAILURE);
}

/// On some desktops that have both, the toolkit prefers X11.
void preferWayland() {
  if (qEnvironmentVariableIsSet("WAYLAND_DISPLAY") && !qEnvironmentVariableIsSet("QT_QPA_PLATFORM"))
    qputenv("QT_QPA_PLATFORM", "wayland;xcb");
}

}  // namespace

void prepareToolkit() {
  qInstallMessageHandler(printMessage);
  preferWayland();
}

}  // namespace zephyl
