#pragma once

#include <QDBusConnection>
#include <QDBusVirtualObject>
#include <functional>
#include <string>

namespace zephyl::sandbox::desktop {

/// The window on the session bus: owns the name under which the tray finds it, and handles requests
/// to show it. No call waits for an answer. Must be used on the main thread.
class WindowBus final : public QDBusVirtualObject {
 public:
  /// The result of the request for the name.
  enum class Name { owned, takenByAnother, unavailable };

  /// `activate` is called when the window should come to the front. The token, which may be empty,
  /// permits that.
  explicit WindowBus(std::function<void(const std::string& token)> activate);

  void requestName(std::function<void(Name)> done);
  /// Returns whether another program can show this window again after it was hidden.
  [[nodiscard]] bool ownsName() const { return ownsName_; }
  /// Brings the window that owns the name to the front.
  void activateOther(const std::string& token, std::function<void()> done);
  /// Queries whether a tray is running that could start a window.
  void findTray(std::function<void(bool found)> done);
  /// Releases the name, and asks the tray to show its window. Because no window owns the name, the
  /// tray starts one.
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
