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

/// A call that asks an application, reached under the bus name `service`, to come to the front.
/// The token allows it to; empty for none. None when it cannot be said.
BusMessage newActivation(const BusConnection& connection, const char* service,
                         const std::string& identifier, const std::string& token);

/// The applications of the session that own a bus name: an identifier whose name has an owner is
/// running.
///
/// The owner's process is known by its id and by a pidfd, which cannot come to mean another process
/// once the application has ended. The bus confirms the id after the pidfd was opened. An owner
/// whose process cannot be opened is running, but is never sent a signal.
///
/// The first question about an identifier waits for the bus, for `firstAnswerTimeout` of real time
/// at most; from then on its name is watched and the answer is at hand. Called from the main
/// thread; lives on the bus thread.
class Applications final : public Bus::Client {
 public:
  static constexpr Duration firstAnswerTimeout = std::chrono::milliseconds(200);

  /// The bus outlives it.
  explicit Applications(Bus& bus) : bus_(bus) {}

  void connected(BusConnection& connection) override;
  void disconnected() override;

  // Main thread
  std::vector<RunningApplication> running(const std::string& identifier);
  /// Brings it to the front, with a token that allows it (empty for none).
  void activate(const std::string& identifier, const std::string& token);
  /// Sends SIGTERM to the process that `running` named, unless it has ended or the name has
  /// another owner meanwhile.
  void terminate(const RunningApplication& application);

 private:
  /// What is known of an identifier. Guarded by the mutex.
  struct Known {
    bool answered = false;
    pid_t pid = 0;                                  // 0: not running
    std::shared_ptr<const FileDescriptor> process;  // a pidfd; null when there is none
  };
  /// What watches it, on the bus thread.
  struct Watch {
    explicit Watch(const std::string& identifier) : name(identifier) {}

    WatchedName name;
    BusSlot question;
  };

  void watch(const std::string& identifier);
  void ownerChanged(Watch& watch);
  void processLearned(Watch& watch, pid_t pid);
  /// Asks the bus for the process id of the name's owner; 0 when it is not known.
  void askForProcess(Watch& watch, std::function<void(pid_t)> answer) const;
  void learn(const std::string& identifier, Known known);
  void sendActivation(const std::string& identifier, const std::string& token) const;

  Bus& bus_;
  std::mutex mutex_;
  std::condition_variable answered_;
  std::map<std::string, Known> known_;

  // The bus thread's own
  BusConnection* connection_ = nullptr;
  bool settled_ = false;  // whether there is a bus is known; before that, questions wait for it
  std::map<std::string, Watch> watches_;  // by identifier
};

}  // namespace zephyl
