#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "Desktop/Freedesktop/Bus/BusConnection.hpp"
#include "System/Concurrency/Clock.hpp"

namespace zephyl {

/// The session bus and the thread "bus" that uses it. If there is no bus, or the connection is
/// lost, connecting is retried every `retryInterval`. No error ends the process.
///
/// The thread sleeps until the bus, a task or a deadline of the library wakes it. Its handlers must
/// be short and must never wait for another thread.
class Bus {
 public:
  static constexpr Duration retryInterval = std::chrono::seconds(10);

  static constexpr Duration batchTime = std::chrono::milliseconds(20);

  /// A bus that accepts the connection must complete the handshake within this time, otherwise it
  /// counts as absent.
  static constexpr Duration handshakeTimeout = std::chrono::seconds(3);

  /// The number of messages that are handled before tasks, timers and `stop` are checked.
  static constexpr int messagesPerTurn = 64;

  /// A user of the bus thread. It is notified of every connection and its loss, and if the first
  /// attempt found no bus. Its slots must be gone when `disconnected` returns.
  class Client {
   public:
    virtual ~Client() = default;
    Client() = default;
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    virtual void connected(BusConnection& connection) = 0;
    virtual void disconnected() = 0;
  };

  /// `clock` must outlive the bus.
  explicit Bus(Clock& clock);
  ~Bus();
  Bus(const Bus&) = delete;
  Bus& operator=(const Bus&) = delete;

  /// Adds a client. Clients are notified in this order. Must be called before `start`. The client
  /// must outlive `stop`.
  void add(Client& client) { clients_.push_back(&client); }
  /// Sets a function that is called on the bus thread when the bus has answered, when it is lost,
  /// and if the first attempt found no bus. Must be called before `start`.
  void onChange(std::function<void(bool connected)> changed) { changed_ = std::move(changed); }

  void start();
  /// Disconnects and joins the thread. Pending tasks are dropped.
  void stop();

  /// Runs `task` on the bus thread, connected or not. Callable from any thread.
  void post(Task task);
  /// Like `post`, for tasks that may be posted a thousand times a second. The first one wakes the
  /// thread, and the following ones wait for `batchTime` and run together. The order of all tasks
  /// is kept.
  void postBatched(Task task);
  /// Like `post`, `delay` from now. A cancelled task may still run if it was already due.
  [[nodiscard]] Timer after(Duration delay, Task task);

  using Handle = std::unique_ptr<sd_bus, BusRelease>;
  /// Connects to the session bus independently of any object, and waits for the handshake for at
  /// most `handshakeTimeout` of real time. Returns null if no bus answers.
  static Handle openAndWait();

 private:
  class Mailbox;

  /// Begins a connection. Returns null if there is no bus.
  static Handle open();

  void run();
  void connect();
  /// Handles that the bus has answered.
  void completeConnection();
  void dropConnection();
  /// Handles received messages, at most `messagesPerTurn`.
  void process();
  void wait();
  void notify(bool connected);

  Clock& clock_;
  const std::shared_ptr<Mailbox> mailbox_;
  std::vector<Client*> clients_;
  std::function<void(bool)> changed_;
  std::thread thread_;

  // Bus thread only:
  bool stopping_ = false;
  Handle bus_;
  std::optional<BusConnection> connection_;  // set when the bus has answered
  std::optional<bool> notified_;
  Timer retry_;
  Timer handshake_;  // limits the time until the bus answers
};

}  // namespace zephyl
