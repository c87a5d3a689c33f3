#pragma once

#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "Desktop/Desktop.hpp"
#include "Desktop/Freedesktop/Bus.hpp"

namespace zephyl {

/// A call that asks an application, reached under the bus name `service`, to come to the front.
/// The token allows it to; empty for none. None when it cannot be said.
BusMessage newActivation(const BusConnection& connection, const char* service,
                         const std::string& identifier, const std::string& token);

/// The applications of the session that own a bus name: running is who has an owner.
///
/// The first question about an identifier waits for the bus, for `firstAnswerLimit` of real time
/// at most; from then on its name is watched and the answer is at hand. Called from the main
/// thread; lives on the bus thread.
class Applications final : public Bus::Client {
 public:
  static constexpr Duration firstAnswerLimit = std::chrono::milliseconds(200);

  /// The bus outlives it.
  explicit Applications(Bus& bus) : bus_(bus) {}

  void connected(BusConnection& connection) override;
  void disconnected() override;

  // Main thread
  std::vector<RunningApplication> running(const std::string& identifier);
  /// Brings it to the front, with a token that allows it (empty for none).
  void activate(const std::string& identifier, const std::string& token);
  /// Sends SIGTERM, unless the application has ended meanwhile.
  void terminate(const RunningApplication& application);

 private:
  /// What is known of an identifier. Guarded by the mutex.
  struct Known {
    bool answered = false;
    pid_t pid = 0;  // 0: not running
  };
  /// What watches it, on the bus thread.
  struct Watch {
    std::vector<BusSlot> owner;
    BusSlot process;
  };

  void watch(const std::string& identifier);
  void ownerChanged(const std::string& identifier, const std::string& owner);
  void learn(const std::string& identifier, pid_t pid);
  void sendActivation(const std::string& identifier, const std::string& token) const;

  Bus& bus_;
  std::mutex mutex_;
  std::condition_variable answered_;
  std::map<std::string, Known> known_;

  // The bus thread's own
  BusConnection* connection_ = nullptr;
  bool settled_ = false;  // whether there is a bus is known; before that, questions wait for it
  std::map<std::string, Watch> watches_;
};

}  // namespace zephyl
