#pragma once

#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "Desktop/Desktop.hpp"
#include "Desktop/Freedesktop/Bus/Bus.hpp"
#include "Desktop/Freedesktop/Bus/WatchedName.hpp"
#include "System/Files/FileDescriptor.hpp"

namespace zephyl {

/// Returns a call that asks an application, reached at the bus name `service`, to come to the
/// front. The token, which may be empty, permits that. Returns null if the call could not be
/// created.
BusMessage newActivation(const BusConnection& connection, const char* service,
                         const std::string& identifier, const std::string& token);

/// The applications of the session that own a bus name: an application is running while its
/// identifier, as a bus name, has an owner.
///
/// The owner's process is identified by its id and by a pidfd, which cannot refer to another
/// process after the application has ended. The bus confirms the id after the pidfd was opened. An
/// owner whose process cannot be opened counts as running, but is never sent a signal.
///
/// The first query for an identifier waits for the bus for at most `firstAnswerTimeout` of real
/// time. From then on its name is watched, and queries return at once. Called from the main thread.
/// The state belongs to the bus thread.
class Applications final : public Bus::Client {
 public:
  static constexpr Duration firstAnswerTimeout = std::chrono::milliseconds(200);

  /// `bus` must outlive it.
  explicit Applications(Bus& bus) : bus_(bus) {}

  void connected(BusConnection& connection) override;
  void disconnected() override;

  // Main thread:
  std::vector<RunningApplication> running(const std::string& identifier);
  /// Brings it to the front with a token, which may be empty, that permits that.
  void activate(const std::string& identifier, const std::string& token);
  /// Sends SIGTERM to the process that `running` returned, unless it has ended or the name has
  /// another owner now.
  void terminate(const RunningApplication& application);

 private:
  /// The state of an identifier. Guarded by the mutex.
  struct Known {
    bool answered = false;
    pid_t pid = 0;                                  // 0: not running
    std::shared_ptr<const FileDescriptor> process;  // a pidfd; null if not available
  };
  /// The subscription for an identifier, on the bus thread.
  struct Watch {
    explicit Watch(const std::string& identifier) : name(identifier) {}

    WatchedName name;
    BusSlot question;
  };

  void watch(const std::string& identifier);
  void ownerChanged(Watch& watch);
  void openOwner(Watch& watch, pid_t pid);
  /// Queries the process id of the name's owner, 0 if unknown.
  void queryProcess(Watch& watch, std::function<void(pid_t)> answer) const;
  void store(const std::string& identifier, Known known);
  void sendActivation(const std::string& identifier, const std::string& token) const;

  Bus& bus_;
  std::mutex mutex_;
  std::condition_variable answered_;
  std::map<std::string, Known> known_;

  // Bus thread only:
  BusConnection* connection_ = nullptr;
  bool settled_ = false;  // the first attempt to connect has ended; queries wait for that
  std::map<std::string, Watch> watches_;  // by identifier
};

}  // namespace zephyl
