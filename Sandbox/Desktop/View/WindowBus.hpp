#pragma once

#include <QDBusConnection>
#include <QDBusVirtualObject>
#include <functional>
#include <string>

namespace zephyl::sandbox::desktop {

/// The window on the session bus: the name under which the tray knows it, and the request to show
/// itself. No call waits for an answer. Main thread.
class WindowBus final : public QDBusVirtualObject {
 public:
  /// How the request for the name ended.
  enum class Name { owned, takenByAnother, unavailable };

  /// `activate` is called when the window is to come to the front; the token, which may be empty,
  /// permits that.
  explicit WindowBus(std::function<void(const std::string& token)> activate);

  void requestName(std::function<void(Name)> done);
  /// Whether another program can show this window again once it is hidden.
  [[nodiscard]] bool ownsName() const { return ownsName_; }
  /// Asks the window that owns the name to come to the front.
  void activateOther(const std::string& token, std::function<void()> done);
  /// Asks whether a tray is there that could start a window.
  void findTray(std::function<void(bool found)> done);
  /// Gives up the name, and asks the tray to show its window: as none has the name, it starts one.
  void askTrayForWindow(std::function<void(bool asked)> done);

 private:
  [[nodiscard]] QString introspect(const QString& path) const override;
  bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override;
  /// Calls `done` with the answer, which may be an error.
  void call(const QDBusMessage& message, std::function<void(const QDBusMessage&)> done);

  QDBusConnection bus_ = QDBusConnection::sessionBus();
  const std::function<void(const std::string&)> activate_;
  bool ownsName_ = false;
};

}  // namespace zephyl::sandbox::desktop
