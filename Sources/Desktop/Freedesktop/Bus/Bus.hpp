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

/// The session bus and the thread, "bus", that talks to it. Where there is no bus, or it is lost,
/// it is looked for again every `retryInterval`; nothing of that ends the process.
///
/// The thread sleeps until the bus, a task or a deadline of the library wakes it. Handlers on it
/// must be short and never wait for another thread.
class Bus {
 public:
  static constexpr Duration retryInterval = std::chrono::seconds(10);

  static constexpr Duration gatheringTime = std::chrono::milliseconds(20);

  /// A bus that accepts the connection has to complete the handshake within this time; otherwise it
  /// counts as absent.
  static constexpr Duration handshakeTimeout = std::chrono::seconds(3);

  /// Messages that are handled before tasks, timers and `stop` get their turn.
  static constexpr int messagesPerTurn = 64;

  /// Something that lives on the bus thread. It is notified of every connection and of its loss,
  /// and of a first attempt that found no bus. Its slots are gone when `disconnected` returns.
  class Client {
   public:
    virtual ~Client() = default;
    Client() = default;
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    virtual void connected(BusConnection& connection) = 0;
    virtual void disconnected() = 0;
  };

  /// The clock outlives the bus.
  explicit Bus(Clock& clock);
  ~Bus();
  Bus(const Bus&) = delete;
  Bus& operator=(const Bus&) = delete;

  /// Before `start`, in the order in which they learn of a connection. They outlive `stop`.
  void add(Client& client) { clients_.push_back(&client); }
  /// Called on the bus thread: when the bus has answered, when it is lost, and once when the first
  /// attempt found none. Before `start`.
  void onChange(std::function<void(bool connected)> changed) { changed_ = std::move(changed); }

  void start();
  /// Disconnects and joins the thread. Tasks that are still waiting do not run.
  void stop();

  /// Runs `task` on the bus thread, connected or not. From any thread.
  void post(Task task);
  /// Like `post`, for what may come a thousand times a second: the first wakes the thread, those
  /// that follow wait for `gatheringTime` and go together. The order among all tasks is kept.
  void postSoon(Task task);
  /// Like `post`, `delay` from now. A cancelled one may still run when it was due already.
  [[nodiscard]] Timer after(Duration delay, Task task);

  using Handle = std::unique_ptr<sd_bus, BusRelease>;
  /// Connects to the session bus apart from this class, and waits for the handshake, for
  /// `handshakeTimeout` of real time at most. Null when no bus answers.
  static Handle openAndWait();

 private:
  class Mailbox;

  /// Begins a connection; null when there is no bus.
  static Handle open();

  void run();
  void connect();
  /// The bus has answered.
  void arrive();
  void lose();
  /// Handles what the bus has sent, `messagesPerTurn` messages at most.
  void process();
  void wait();
  void notify(bool connected);

  Clock& clock_;
  const std::shared_ptr<Mailbox> mailbox_;
  std::vector<Client*> clients_;
  std::function<void(bool)> changed_;
  std::thread thread_;

  // The bus thread's own
  bool stopping_ = false;
  Handle bus_;
  std::optional<BusConnection> connection_;  // once the bus has answered
  std::optional<bool> told_;
  Timer retry_;
  Timer handshake_;  // runs out when the bus does not answer
};

}  // namespace zephyl
