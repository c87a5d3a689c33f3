#include "Desktop/View/WindowBus.hpp"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <utility>

namespace zephyl::sandbox::desktop {
namespace {

constexpr auto windowName = "com.zephyl.desktop";
constexpr auto windowPath = "/com/zephyl/desktop";
constexpr auto trayName = "com.zephyl.tray";
constexpr auto trayPath = "/com/zephyl/tray";
constexpr auto applicationInterface = "org.freedesktop.Application";
constexpr auto busName = "org.freedesktop.DBus";
constexpr auto busPath = "/org/freedesktop/DBus";
constexpr int callTimeoutMilliseconds = 3000;

constexpr uint doNotQueue = 4;
constexpr uint primaryOwner = 1;
constexpr uint alreadyOwner = 4;

QDBusMessage busCall(const char* method) {
  return QDBusMessage::createMethodCall(busName, busPath, busName, method);
}

QDBusMessage activation(const char* name, const char* path, const std::string& token) {
  auto call = QDBusMessage::createMethodCall(name, path, applicationInterface, "Activate");
  call.setAutoStartService(false);
  QVariantMap platform;
  if (!token.empty()) {
    platform["activation-token"] = QString::fromStdString(token);
    platform["desktop-startup-id"] = QString::fromStdString(token);
  }
  call << platform;
  return call;
}

/// The platform data is the last argument of every method of the interface.
std::string tokenIn(const QDBusMessage& message) {
  if (message.arguments().isEmpty()) return {};
  const auto platform = qdbus_cast<QVariantMap>(message.arguments().constLast());
  const auto token = platform.value("activation-token").toString();
  return (token.isEmpty() ? platform.value("desktop-startup-id").toString() : token).toStdString();
}

}  // namespace

WindowBus::WindowBus(std::function<void(const std::string&)> activate)
    : activate_(std::move(activate)) {
  bus_.registerVirtualObject(windowPath, this);
}

QString WindowBus::introspect(const QString&) const {
  return QStringLiteral(
      "<interface name=\"org.freedesktop.Application\">"
      "<method name=\"Activate\"><arg type=\"a{sv}\" direction=\"in\"/></method>"
      "<method name=\"Open\"><arg type=\"as\" direction=\"in\"/><arg type=\"a{sv}\" "
      "direction=\"in\"/></method>"
      "<method name=\"ActivateAction\"><arg type=\"s\" direction=\"in\"/><arg type=\"av\" "
      "direction=\"in\"/><arg type=\"a{sv}\" direction=\"in\"/></method></interface>");
}

bool WindowBus::handleMessage(const QDBusMessage& message, const QDBusConnection& connection) {
  const auto method = message.member();
  if (message.interface() != applicationInterface) return false;
  if (method != "Activate" && method != "Open" && method != "ActivateAction") return false;
  connection.send(message.createReply());
  activate_(tokenIn(message));
  return true;
}

void WindowBus::call(const QDBusMessage& message, std::function<void(const QDBusMessage&)> done) {
  if (!bus_.isConnected()) {
    // A watcher of such a call would not report an error.
    QMetaObject::invokeMethod(
        this, [done = std::move(done)] { done({}); }, Qt::QueuedConnection);
    return;
  }
  const auto pending = bus_.asyncCall(message, callTimeoutMilliseconds);
  auto watcher = std::make_unique<QDBusPendingCallWatcher>(pending);
  connect(watcher.get(), &QDBusPendingCallWatcher::finished, this,
          [done = std::move(done)](QDBusPendingCallWatcher* finished) {
            finished->deleteLater();
            done(finished->reply());
          });
  watcher.release()->setParent(this);
}

void WindowBus::requestName(std::function<void(Name)> done) {
  auto request = busCall("RequestName");
  request << QString(windowName) << doNotQueue;
  call(request, [this, done = std::move(done)](const QDBusMessage& reply) {
    if (reply.type() != QDBusMessage::ReplyMessage) return done(Name::unavailable);
    const auto outcome = reply.arguments().value(0).toUInt();
    ownsName_ = outcome == primaryOwner || outcome == alreadyOwner;
    done(ownsName_ ? Name::owned : Name::takenByAnother);
  });
}

void WindowBus::activateOther(const std::string& token, std::function<void()> done) {
  call(activation(windowName, windowPath, token),
       [done = std::move(done)](const QDBusMessage&) { done(); });
}

void WindowBus::findTray(std::function<void(bool)> done) {
  auto question = busCall("NameHasOwner");
  question << QString(trayName);
  call(question, [done = std::move(done)](const QDBusMessage& reply) {
    done(reply.type() == QDBusMessage::ReplyMessage && reply.arguments().value(0).toBool());
  });
}

void WindowBus::askTrayForWindow(std::function<void(bool)> done) {
  auto release = busCall("ReleaseName");
  release << QString(windowName);
  ownsName_ = false;
  call(release, [](const QDBusMessage&) {});
  call(activation(trayName, trayPath, {}), [done = std::move(done)](const QDBusMessage& reply) {
    done(reply.type() == QDBusMessage::ReplyMessage);
  });
}

}  // namespace zephyl::sandbox::desktop
